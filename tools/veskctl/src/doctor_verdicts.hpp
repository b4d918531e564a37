#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kov::tools::veskctl::doctor {

enum class Status { Pass, Warn, Fail };

/// "PASS", "WARN" or "FAIL".
const char* statusName(Status status);

/// One line of the doctor's report: what was checked, how it went, what was found and, for WARN and
/// FAIL, the command or setting that fixes it.
struct Verdict {
  std::string check;
  Status status{Status::Pass};
  std::string found;
  std::string fix;

  friend bool operator==(const Verdict& a, const Verdict& b) {
    return a.check == b.check && a.status == b.status && a.found == b.found && a.fix == b.fix;
  }
};

/// The interface that carries the unicast address.
struct InterfaceFacts {
  std::string name;
  std::string matched;  ///< "a.b.c.d/len" when the address lies in a loopback network; empty when assigned
  bool up{false};
  bool multicast{false};
  bool loopback{false};
};

/// Whether our own datagram to the SD group came back over the interface of the unicast address.
struct LoopbackFacts {
  bool delivered{false};
  std::string error;  ///< why the probe could not be sent or received; empty when it ran
};

/// The reverse-path filter settings, and what the kernel dropped while the doctor listened.
struct RpFilterFacts {
  std::optional<int> interfaceValue;         ///< net.ipv4.conf.<if>.rp_filter
  std::optional<int> allValue;               ///< net.ipv4.conf.all.rp_filter
  std::optional<std::uint64_t> dropsBefore;  ///< IPReversePathFilter before listening
  std::optional<std::uint64_t> dropsAfter;   ///< and after
};

/// The interface the route back to one SD sender leaves through.
struct SenderRoute {
  std::string sender;     ///< dotted quad
  std::string interface;  ///< empty when no route leads back
};

/// A process that has a socket on the SD port.
struct PortHolder {
  int pid{0};
  std::string command;  ///< /proc/<pid>/comm
  std::string local;    ///< "a.b.c.d:port" it is bound to
};

/// Whether test sockets with address reuse could take the SD port next to other programs.
struct PortFacts {
  std::string unicastError;  ///< empty when ADDR:port could be bound
  std::string groupError;    ///< empty when group:port could be bound
  bool inUse{false};  ///< a bind failed because the port is taken there (else: the address is not usable)
  std::vector<PortHolder> holders;
  bool holdersVisible{true};  ///< false when some sockets on the port belong to no process we may inspect
};

/// One SD participant heard while listening.
struct Participant {
  std::string address;  ///< dotted quad
  std::uint16_t port{0};
  bool reboot{false};  ///< its latest message carried the reboot flag
  unsigned messages{0};
};

/// One OfferService entry heard (the latest of its service, instance and sender).
struct Offer {
  std::uint16_t service{0};
  std::uint16_t instance{0};
  std::uint8_t major{0};
  std::uint32_t minor{0};
  std::uint32_t ttl{0};
  std::string endpoint;  ///< "a.b.c.d:port" of its first IPv4 endpoint option; empty without one
  std::string sender;    ///< dotted quad of the SD participant that sent it
  bool unicast{false};   ///< it came to ADDR:port (an answer to our FindService), not to the group
};

/// What listening to service discovery brought.
struct ListenFacts {
  double seconds{0};
  std::string error;      ///< the listening sockets could not be opened
  std::string findError;  ///< our FindService could not be sent; empty when it was
  std::vector<Participant> participants;
  std::vector<Offer> offers;
};

/// One getter call to one sensor.
struct GetterFacts {
  std::uint16_t sensor{0};
  bool answered{false};
  double milliseconds{0};
  std::string detail;  ///< the value read, or why the call failed
};

/// Services a sensor of this family offers, each under the sensor's id as instance id.
constexpr std::uint16_t SENSOR_SERVICES[] = {0x0002, 0x0003, 0x0004};

/// Check 1: the unicast address lies on an interface that is up and multicast-capable. A missing
/// multicast flag is a warning while the loop-back probe still works, a failure otherwise.
Verdict addressVerdict(const std::string& address, const std::optional<InterfaceFacts>& interface,
                       const LoopbackFacts& loopback);

/// Check 2: reverse-path filtering of the interface: setting, drops while listening and the route back
/// to each SD sender.
std::vector<Verdict> rpFilterVerdicts(const InterfaceFacts& interface, const RpFilterFacts& facts,
                                      const std::vector<SenderRoute>& routes);

/// Check 3: the SD port can be shared.
Verdict portVerdict(const std::string& address, const std::string& group, std::uint16_t port,
                    const PortFacts& facts);

/// Check 4: multicast loop-back on the interface of the address.
Verdict loopbackVerdict(const std::string& address, const std::string& group, const std::string& interface,
                        const LoopbackFacts& facts);

/// Check 5: SD participants, offers, answers to our FindService, the sensors and their versions.
/// `major` is the version asked for (--major), if any.
std::vector<Verdict> listenVerdicts(const ListenFacts& facts, std::optional<std::uint8_t> major);

/// Ids of the sensors of this family among `offers`, ascending.
std::vector<std::uint16_t> sensorsOf(const std::vector<Offer>& offers);

/// Check 6: one getter per sensor.
std::vector<Verdict> getterVerdicts(const std::vector<GetterFacts>& calls);

/// True when some verdict failed.
bool anyFailed(const std::vector<Verdict>& verdicts);

}  // namespace kov::tools::veskctl::doctor
