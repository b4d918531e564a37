#include "simulator/mode_sequencer.hpp"

namespace kov::tools::simulator {

ModeSequencer::ModeSequencer(std::chrono::milliseconds step) : step_(step) {}

void ModeSequencer::reboot(Clock::time_point now) {
  phase_ = Phase::Booting;
  goalScanning_ = false;
  parked_ = false;
  nextChange_ = now + 2 * step_;
}

ModeSequencer::Status ModeSequencer::status() const {
  switch (phase_) {
    case Phase::Standby:
      return Status::STANDBY;
    case Phase::Scanning:
      return Status::SCANNING;
    case Phase::Booting:
    case Phase::SpinningUp:
    case Phase::SpinningDown:
      break;
  }
  return Status::INITIALIZING;
}

bool ModeSequencer::command(Command command, Clock::time_point now) {
  goalScanning_ = command == Command::SCANNING;
  parked_ = command == Command::SHUTDOWN;
  const Phase before = phase_;
  switch (phase_) {
    case Phase::Booting:
      break;  // the goal is taken up once booted
    case Phase::SpinningUp:
      if (!goalScanning_) {
        phase_ = Phase::SpinningDown;
        nextChange_ = now + step_;
      }
      break;
    case Phase::SpinningDown:
      if (goalScanning_) {
        phase_ = Phase::SpinningUp;
        nextChange_ = now + step_;
      }
      break;
    case Phase::Standby:
    case Phase::Scanning:
      startTowardsGoal(now);
      break;
  }
  return phase_ != before;
}

void ModeSequencer::startTowardsGoal(Clock::time_point now) {
  if (phase_ == Phase::Standby && goalScanning_) {
    phase_ = Phase::SpinningUp;
    nextChange_ = now + step_;
  } else if (phase_ == Phase::Scanning && !goalScanning_) {
    phase_ = Phase::SpinningDown;
    nextChange_ = now + step_;
  } else {
    nextChange_.reset();
  }
}

std::vector<ModeSequencer::Status> ModeSequencer::advance(Clock::time_point now) {
  std::vector<Status> entered;
  auto enter = [&entered](Status status) {
    if (entered.empty() || entered.back() != status) {
      entered.push_back(status);
    }
  };
  while (nextChange_ && *nextChange_ <= now) {
    const auto at = *nextChange_;
    phase_ = (phase_ == Phase::SpinningUp) ? Phase::Scanning : Phase::Standby;
    enter(status());
    startTowardsGoal(at);
    if (nextChange_) {
      enter(status());
    }
  }
  return entered;
}

}  // namespace kov::tools::simulator
