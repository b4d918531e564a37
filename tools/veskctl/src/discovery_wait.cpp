#include "discovery_wait.hpp"

#include <algorithm>
#include <sstream>
#include <utility>
#include <vector>

#include "printer.hpp"

namespace kov::tools::veskctl {

namespace {

/// "a", "a and b", "a, b and c"
std::string joinAnd(const std::vector<std::string>& items) {
  std::string text;
  for (std::size_t index = 0; index < items.size(); ++index) {
    text += (index == 0 ? "" : index + 1 == items.size() ? " and " : ", ") + items[index];
  }
  return text;
}

std::vector<std::string> missingServices(const std::set<std::uint16_t>& available) {
  std::vector<std::string> missing;
  for (const auto serviceId : DiscoveryWait::SERVICE_IDS) {
    if (available.count(serviceId) == 0) {
      missing.push_back(hexId(serviceId));
    }
  }
  return missing;
}

}  // namespace

DiscoveryWait::DiscoveryWait(DiscoveryGoal goal, Clock::time_point start, std::chrono::milliseconds timeout)
    : goal_(std::move(goal)), deadline_(start + timeout), timeout_(timeout) {}

void DiscoveryWait::serviceChanged(std::uint16_t sensorId, std::uint16_t serviceId, bool available,
                                   Clock::time_point at) {
  if (!available) {
    const auto found = sensors_.find(sensorId);
    if (found != sensors_.end()) {
      found->second.available.erase(serviceId);
    }
    return;
  }
  // A service that comes (or comes back) is news; one that goes is not.
  if (sensors_[sensorId].available.insert(serviceId).second) {
    lastNews_ = at;
  }
}

bool DiscoveryWait::complete(const Seen& seen) {
  return std::all_of(std::begin(SERVICE_IDS), std::end(SERVICE_IDS),
                     [&seen](std::uint16_t serviceId) { return seen.available.count(serviceId) != 0; });
}

std::size_t DiscoveryWait::completeCount() const {
  return static_cast<std::size_t>(std::count_if(sensors_.begin(), sensors_.end(),
                                                [](const auto& entry) { return complete(entry.second); }));
}

DiscoveryWait::Verdict DiscoveryWait::check(Clock::time_point now) const {
  const bool timedOut = now >= deadline_;
  if (goal_.sensor) {
    const auto found = sensors_.find(*goal_.sensor);
    if (found != sensors_.end() && complete(found->second)) {
      return Verdict{Verdict::State::Done, now, {}};
    }
    if (timedOut) {
      return Verdict{Verdict::State::Failed, now, sensorMissing()};
    }
    return Verdict{Verdict::State::Waiting, deadline_, {}};
  }
  const auto found = completeCount();
  // Settling needs something found; an explicit count needs that many complete sensors.
  const bool enough = found >= goal_.sensors && !sensors_.empty();
  if (enough && (!goal_.settle || timedOut || now >= *lastNews_ + QUIET_TIME)) {
    return Verdict{Verdict::State::Done, now, {}};
  }
  if (timedOut) {
    return Verdict{Verdict::State::Failed, now, tooFew(found)};
  }
  if (enough) {
    return Verdict{Verdict::State::Waiting, std::min(deadline_, *lastNews_ + QUIET_TIME), {}};
  }
  return Verdict{Verdict::State::Waiting, deadline_, {}};
}

std::string DiscoveryWait::withinTimeout() const {
  std::ostringstream text;
  text << "within " << static_cast<double>(timeout_.count()) / 1000.0 << " s";
  return text.str();
}

std::string DiscoveryWait::sensorMissing() const {
  const auto id = *goal_.sensor;
  std::vector<std::string> others;
  for (const auto& entry : sensors_) {
    if (entry.first != id) {
      others.push_back(hexId(entry.first));
    }
  }
  const auto othersText = joinAnd(others);
  const std::string sensors = others.size() == 1 ? "sensor " : "sensors ";
  const auto found = sensors_.find(id);
  if (found == sensors_.end()) {
    return "sensor " + hexId(id) + " not discovered " + withinTimeout() + ": " +
           (others.empty() ? std::string("no sensor found") : "found instead " + sensors + othersText);
  }
  std::vector<std::string> offered;
  for (const auto serviceId : found->second.available) {
    offered.push_back(hexId(serviceId));
  }
  const auto missing = missingServices(found->second.available);
  std::string text = "sensor " + hexId(id) + " not discovered with all its services " + withinTimeout() +
                     ": it offers " +
                     (offered.empty() ? "none of " + joinAnd(missing) + " now"
                                      : joinAnd(offered) + " but not " + joinAnd(missing));
  if (!others.empty()) {
    text += "; found other " + sensors + othersText;
  }
  return text;
}

std::string DiscoveryWait::tooFew(std::size_t found) const {
  if (goal_.sensors == 0) {
    return "no sensor found " + withinTimeout();
  }
  std::string text = "only " + std::to_string(found) + " of " + (goal_.settle ? "at least " : "") +
                     std::to_string(goal_.sensors) + " sensors discovered with all services " +
                     withinTimeout();
  std::vector<std::string> seen;
  for (const auto& entry : sensors_) {
    const auto missing = missingServices(entry.second.available);
    seen.push_back(hexId(entry.first) + (missing.empty() ? "" : " (without " + joinAnd(missing) + ")"));
  }
  return text + (seen.empty() ? "; no sensor found" : "; found " + joinAnd(seen));
}

}  // namespace kov::tools::veskctl
