#include "transport_core.hpp"

#include <unistd.h>

#include "common/log/log.hpp"

namespace kov::platform::networking::someip::detail {

namespace {
constexpr const char* LOG_PATH = "transport/src/transport_core.cpp";
}

TransportCore::TransportCore(TransportOptions options)
    : options_(std::move(options)),
      random_(std::random_device{}()),
      discovery_(options_, [this] { return randomInitialDelay(); }),
      server_(options_, [this] { return randomInitialDelay(); }) {}

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
  std::unique_lock<std::mutex> lock(mutex_);
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
  if (!sockets_.open(options_.unicastAddress, options_.sdMulticastAddress, options_.sdPort,
                     options_.clientPort)) {
    KOV_LOG(ERROR, LOG_PATH) << "SOME/IP transport could not open its sockets on " << options_.unicastAddress;
    return RESULT_SOCKET_ERROR;
  }
  subscriptions_ = std::make_unique<EventSubscriptions>(options_, Endpoint{ownIp_, sockets_.clientPort()});
  connected_ = true;
  dispatch_.start();
  receiver_ = std::thread([this] { receiveLoop(); });
  return Result::Ok;
}

Result TransportCore::disconnect() {
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
    wakeReceiver();
  }
  callDone_.notify_all();
  if (receiver.joinable()) {
    receiver.join();
  }
  dispatch_.stop();
  std::lock_guard<std::mutex> lock(mutex_);
  sockets_.closeAll();
  eventSubscriptions_.clear();
  offeredEvents_.clear();
  unicastSessions_.clear();
  return Result::Ok;
}

void TransportCore::noteBacklog(bool queued, const char* what, std::uint16_t id) {
  if (!queued) {
    if (droppedForBacklog_++ == 0) {
      KOV_LOG(WARN, LOG_PATH) << "Handlers fall behind: dropping " << what << std::hex << id << " and what "
                              << "follows while " << std::dec << options_.maxHandlerBacklog << " tasks wait";
    }
    return;
  }
  if (droppedForBacklog_ != 0) {
    KOV_LOG(WARN, LOG_PATH) << "Handlers caught up; " << droppedForBacklog_
                            << " events or requests were dropped";
    droppedForBacklog_ = 0;
  }
}

void TransportCore::wakeReceiver() {
  const char byte = 1;
  if (sockets_.wakeWriter() != -1) {
    [[maybe_unused]] const auto written = ::write(sockets_.wakeWriter(), &byte, 1);
  }
}

}  // namespace kov::platform::networking::someip::detail
