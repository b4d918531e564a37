#include "transport_core.hpp"

#include "common/log/log.hpp"

namespace kov::platform::networking::someip::detail {

namespace {
constexpr const char* LOG_PATH = "transport/src/transport_core.cpp";
}

TransportCore::TransportCore(TransportOptions options, std::unique_ptr<Network> network)
    : options_(std::move(options)),
      network_(std::move(network)),
      random_(std::random_device{}()),
      discovery_(options_, [this] { return randomInitialDelay(); }),
      server_(options_, [this] { return randomInitialDelay(); }),
      logLimiter_(options_.logInterval) {}

TransportCore::~TransportCore() {
  disconnect();
}

std::chrono::milliseconds TransportCore::randomInitialDelay() {
  const auto low = options_.initialDelayMin.count();
  const auto high = std::max(low, options_.initialDelayMax.count());
  std::uniform_int_distribution<long long> pick(low, high);
  return std::chrono::milliseconds(pick(random_));
}

Result TransportCore::connect() {
  std::lock_guard<std::mutex> lifecycle(lifecycleMutex_);
  std::lock_guard<std::mutex> lock(mutex_);
  if (connected_) {
    return Result::Ok;
  }
  std::string problem;
  if (!someip::validateOptions(options_, problem)) {
    KOV_LOG(ERROR, LOG_PATH) << "SOME/IP transport options rejected: " << problem;
    return RESULT_SOCKET_ERROR;
  }
  parseIp(options_.unicastAddress, ownIp_);
  parseIp(options_.sdMulticastAddress, multicastIp_);
  if (!network_->open(options_)) {
    KOV_LOG(ERROR, LOG_PATH) << "SOME/IP transport could not open its sockets on " << options_.unicastAddress;
    return RESULT_SOCKET_ERROR;
  }
  resetStateLocked();
  subscriptions_ = std::make_unique<EventSubscriptions>(options_, Endpoint{ownIp_, network_->clientPort()});
  connected_ = true;
  dispatch_.start();
  receiver_ = std::thread([this] { receiveLoop(); });
  return Result::Ok;
}

Result TransportCore::disconnect() {
  std::lock_guard<std::mutex> lifecycle(lifecycleMutex_);
  std::thread receiver;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!connected_) {
      return Result::Ok;
    }
    SdOutbox out;
    server_.stopAll(out);
    subscriptions_->removeAll(out);
    flushLocked(out);
    connected_ = false;
    for (auto& [session, call] : pendingCalls_) {
      call->done = true;
      call->result = RESULT_NOT_CONNECTED;
    }
    pendingCalls_.clear();
    receiver = std::move(receiver_);
    network_->wake();
  }
  callDone_.notify_all();
  if (receiver.joinable()) {
    receiver.join();
  }
  dispatch_.stop();
  std::lock_guard<std::mutex> lock(mutex_);
  network_->close();
  resetStateLocked();
  return Result::Ok;
}

void TransportCore::resetStateLocked() {
  // A new connection starts as a new participant: nothing learnt or promised before is kept, and
  // every SD channel starts again at session 1 with the reboot flag set.
  discovery_.clear();
  SdOutbox ignored;
  server_.stopAll(ignored);
  if (subscriptions_) {
    subscriptions_->removeAll(ignored);
  }
  multicastSession_ = SdSessionCounter{};
  unicastSessions_.clear();
  reboots_ = RebootDetector{};
  peers_.clear();
  logLimiter_.clear();
  eventSubscriptions_.clear();
  offeredEvents_.clear();
  joinedGroups_.clear();
  pendingCalls_.clear();
  droppedForBacklog_ = 0;
}

bool TransportCore::mayLogLocked(std::uint32_t peerIp, LogKind kind, std::size_t& suppressed) {
  return logLimiter_.allow(network_->now(), peerIp, kind, suppressed);
}

void TransportCore::noteBacklog(bool queued, const char* what, std::uint16_t id) {
  if (!queued) {
    if (droppedForBacklog_++ == 0) {
      KOV_LOG(WARN, LOG_PATH) << "Handlers fall behind: dropping " << what << std::hex << id << " and what "
                              << "follows while " << std::dec << options_.maxHandlerBacklog << " tasks or "
                              << options_.maxHandlerBacklogBytes << " bytes wait";
    }
    return;
  }
  if (droppedForBacklog_ != 0) {
    KOV_LOG(WARN, LOG_PATH) << "Handlers caught up; " << droppedForBacklog_
                            << " events or requests were dropped";
    droppedForBacklog_ = 0;
  }
}

}  // namespace kov::platform::networking::someip::detail
