#include "printer.hpp"

#include <cmath>
#include <cstdlib>
#include <iomanip>
#include <sstream>

namespace kov::tools::veskctl {

namespace {

constexpr int OPERATION_WIDTH = 30;

std::string seconds(std::chrono::milliseconds at) {
  std::ostringstream text;
  text << '[' << std::fixed << std::setprecision(3) << std::setw(7)
       << static_cast<double>(at.count()) / 1000.0 << " s]";
  return text.str();
}

std::string textFields(const Fields& fields) {
  std::string text;
  for (const auto& field : fields) {
    if (!text.empty()) {
      text += "  ";
    }
    const bool spaced = field.quoted && (field.text.empty() || field.text.find(' ') != std::string::npos);
    text += field.key + '=' + (spaced ? '"' + field.text + '"' : field.text);
  }
  return text;
}

/// true, false or a finite number (nan and inf are not JSON numbers and go out as strings).
bool isJsonLiteral(const std::string& text) {
  if (text == "true" || text == "false") {
    return true;
  }
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  return !text.empty() && *end == '\0' && std::isfinite(value);
}

std::string jsonFields(const Fields& fields) {
  std::string text = "{";
  for (const auto& field : fields) {
    if (text.size() > 1) {
      text += ',';
    }
    const bool bare = !field.quoted && isJsonLiteral(field.text);
    text += Printer::quote(field.key) + ':' + (bare ? field.text : Printer::quote(field.text));
  }
  return text + '}';
}

std::string jsonSensor(std::uint16_t sensorId) {
  return "\"sensor\":" + std::to_string(sensorId) + ",\"sensorHex\":\"" + hexId(sensorId) + '"';
}

}  // namespace

std::string hexId(std::uint16_t id) {
  std::ostringstream text;
  text << "0x" << std::hex << std::setw(4) << std::setfill('0') << id;
  return text.str();
}

Printer::Printer(std::ostream& out, bool json, bool showAvailability)
    : out_(out), json_(json), showAvailability_(showAvailability) {}

std::string Printer::quote(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    switch (c) {
      case '"':
        quoted += "\\\"";
        break;
      case '\\':
        quoted += "\\\\";
        break;
      case '\n':
        quoted += "\\n";
        break;
      case '\t':
        quoted += "\\t";
        break;
      default:
        if (static_cast<unsigned char>(c) < 0x20) {
          std::ostringstream escape;
          escape << "\\u" << std::hex << std::setw(4) << std::setfill('0') << static_cast<int>(c);
          quoted += escape.str();
        } else {
          quoted += c;
        }
    }
  }
  return quoted + '"';
}

void Printer::line(const std::string& text) {
  const auto end = text.find_last_not_of(' ');
  std::lock_guard<std::mutex> lock(mutex_);
  out_ << text.substr(0, end == std::string::npos ? 0 : end + 1) << '\n' << std::flush;
}

void Printer::note(const std::string& message) {
  line(json_ ? "{\"type\":\"note\",\"message\":" + quote(message) + '}' : message);
}

void Printer::availability(std::chrono::milliseconds at, std::uint16_t sensorId, std::uint16_t serviceId,
                           bool available) {
  if (!showAvailability_) {
    return;
  }
  if (json_) {
    line("{\"type\":\"availability\",\"ms\":" + std::to_string(at.count()) + ',' + jsonSensor(sensorId) +
         ",\"service\":\"" + hexId(serviceId) + "\",\"available\":" + (available ? "true" : "false") + '}');
    return;
  }
  line(seconds(at) + " sensor " + hexId(sensorId) + "  service " + hexId(serviceId) + "  " +
       (available ? "available" : "unavailable"));
}

void Printer::result(std::uint16_t sensorId, const std::string& operation, bool ok, const Fields& fields,
                     const std::string& reason) {
  if (json_) {
    line("{\"type\":\"result\"," + jsonSensor(sensorId) + ",\"operation\":" + quote(operation) +
         ",\"ok\":" + (ok ? "true" : "false") + ",\"value\":" + jsonFields(ok ? fields : Fields{}) +
         (ok ? std::string() : ",\"reason\":" + quote(reason)) + '}');
    return;
  }
  std::ostringstream text;
  text << "  sensor " << hexId(sensorId) << "  " << std::left << std::setw(OPERATION_WIDTH) << operation
       << std::setw(8) << (ok ? "ok" : "FAILED") << (ok ? textFields(fields) : reason);
  line(text.str());
}

void Printer::event(std::chrono::milliseconds at, std::uint16_t sensorId, const std::string& name,
                    const Fields& fields) {
  if (json_) {
    line("{\"type\":\"event\",\"ms\":" + std::to_string(at.count()) + ',' + jsonSensor(sensorId) +
         ",\"event\":" + quote(name) + ",\"value\":" + jsonFields(fields) + '}');
    return;
  }
  std::ostringstream text;
  text << seconds(at) << " sensor " << hexId(sensorId) << "  event " << std::left
       << std::setw(OPERATION_WIDTH - 4) << name << textFields(fields);
  line(text.str());
}

void Printer::fault(std::uint16_t sensorId, const std::string& fault, const std::string& operation,
                    bool asExpected, const std::string& detail) {
  if (json_) {
    line("{\"type\":\"fault\"," + jsonSensor(sensorId) + ",\"fault\":" + quote(fault) +
         ",\"operation\":" + quote(operation) + ",\"asExpected\":" + (asExpected ? "true" : "false") +
         ",\"detail\":" + quote(detail) + '}');
    return;
  }
  std::ostringstream text;
  text << "  sensor " << hexId(sensorId) << "  fault " << std::left << std::setw(13) << fault
       << std::setw(OPERATION_WIDTH) << operation << (asExpected ? "" : "UNEXPECTED  ") << detail;
  line(text.str());
}

}  // namespace kov::tools::veskctl
