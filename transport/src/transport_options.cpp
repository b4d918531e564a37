#include "someip/transport_options.hpp"

#include "someip/endpoint.hpp"
#include "someip/sd_message.hpp"

namespace kov::platform::networking::someip {

bool validateOptions(const TransportOptions& options, std::string& problem) {
  std::uint32_t ip = 0;
  if (!parseIp(options.unicastAddress, ip) || ip == 0) {
    problem = "unicastAddress '" + options.unicastAddress + "' is not an IPv4 address of this host";
    return false;
  }
  if (!parseIp(options.sdMulticastAddress, ip) || (ip >> 28) != 0xE) {
    problem = "sdMulticastAddress '" + options.sdMulticastAddress + "' is not an IPv4 multicast address";
    return false;
  }
  if (options.sdPort == 0) {
    problem = "sdPort must not be 0";
    return false;
  }
  if (options.offerTtlSeconds == 0 || options.offerTtlSeconds > TTL_INFINITE ||
      options.subscriptionTtlSeconds == 0 || options.subscriptionTtlSeconds > TTL_INFINITE) {
    problem = "TTLs must be 1..16777215 seconds";
    return false;
  }
  if (options.callTimeout.count() <= 0 || options.initialDelayMin.count() < 0 ||
      options.initialDelayMax < options.initialDelayMin || options.repetitionsBaseDelay.count() <= 0 ||
      options.repetitionsMax > 16 || options.cyclicOfferDelay.count() < 0 ||
      options.ackTimeout.count() <= 0) {
    problem = "timings must be positive, initialDelayMin <= initialDelayMax and repetitionsMax <= 16";
    return false;
  }
  if (options.maxHandlerBacklog == 0 || options.maxHandlerBacklogBytes == 0 || options.maxRemoteOffers == 0 ||
      options.maxPeers == 0 || options.maxSubscribersPerPeer == 0 || options.maxSubscribers == 0 ||
      options.maxPendingCalls == 0) {
    problem = "maxHandlerBacklog, maxHandlerBacklogBytes and the max* table bounds must be at least 1";
    return false;
  }
  if (options.peerIdleTimeout.count() <= 0 || options.logInterval.count() < 0) {
    problem = "peerIdleTimeout must be positive and logInterval not negative";
    return false;
  }
  return true;
}

}  // namespace kov::platform::networking::someip
