#include "return_codes.hpp"

#include <cstdlib>

namespace kov::tools::veskctl {

namespace {

/// The SOME/IP return codes a transport hands on from the sensor's answer.
std::string meaningOf(unsigned long code) {
  switch (code) {
    case 0x01:
      return "not ok";
    case 0x02:
      return "unknown service";
    case 0x03:
      return "unknown method";
    case 0x04:
      return "not ready";
    case 0x05:
      return "not reachable";
    case 0x06:
      return "timeout";
    case 0x07:
      return "wrong protocol version";
    case 0x08:
      return "wrong interface version";
    case 0x09:
      return "malformed message";
    case 0x0a:
      return "wrong message type";
    default:
      break;
  }
  if (code >= 0x20 && code <= 0x5e) {
    return "the sensor refused the request";
  }
  return "unknown code";
}

}  // namespace

std::string explainReturnCodes(const std::string& reason) {
  static const std::string MARK = "failed with code \"";
  const auto at = reason.find(MARK);
  if (at == std::string::npos) {
    return reason;
  }
  const auto start = at + MARK.size();
  const auto end = reason.find('"', start);
  const std::string digits = reason.substr(start, end == std::string::npos ? 0 : end - start);
  if (digits.empty() || digits.size() > 8 ||
      digits.find_first_not_of("0123456789abcdef") != std::string::npos) {
    return reason;
  }
  const auto code = std::strtoul(digits.c_str(), nullptr, 16);
  return reason.substr(0, end + 1) + " (SOME/IP return code 0x" + digits + ": " + meaningOf(code) + ")" +
         reason.substr(end + 1);
}

}  // namespace kov::tools::veskctl
