#pragma once

#include <chrono>

#include "sd_outbox.hpp"
#include "someip/transport_options.hpp"

namespace kov::platform::networking::someip::detail {

/// When the next find or offer of one service goes out: after the initial wait, `repetitionsMax`
/// repetitions with doubling delays, then (offers only) every cyclic delay.
class RepetitionSchedule {
 public:
  RepetitionSchedule() = default;
  RepetitionSchedule(Clock::time_point firstDue, bool cyclic) : due_(firstDue), cyclic_(cyclic) {}

  Clock::time_point due() const { return due_; }
  bool finished() const { return due_ == Clock::time_point::max(); }
  /// True once the message went out at least once.
  bool anySent() const { return anySent_; }

  /// Records that the message went out at `now` and moves to the next due time.
  void sent(Clock::time_point now, const TransportOptions& options) {
    anySent_ = true;
    if (repetitions_ < options.repetitionsMax) {
      due_ = now + options.repetitionsBaseDelay * (1u << repetitions_);
      ++repetitions_;
    } else if (cyclic_ && options.cyclicOfferDelay.count() > 0) {
      due_ = now + options.cyclicOfferDelay;
    } else {
      due_ = Clock::time_point::max();
    }
  }

  void finish() { due_ = Clock::time_point::max(); }

 private:
  Clock::time_point due_{Clock::time_point::max()};
  bool cyclic_{false};
  unsigned repetitions_{0};
  bool anySent_{false};
};

}  // namespace kov::platform::networking::someip::detail
