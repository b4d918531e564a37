#pragma once

#include <gmock/gmock.h>

#include <cstdint>
#include <vector>

#include "networking/i_some_ip_transport.hpp"

namespace kov::test {

/// GMock double of the SOME/IP transport.
class MockTransport : public kov::platform::networking::ISomeIpTransport {
 public:
  MOCK_METHOD(Result, connect, (), (override));
  MOCK_METHOD(Result, disconnect, (), (override));
  MOCK_METHOD(bool, subscribeAvailability, (const std::vector<std::uint16_t>&, AvailabilityHandler),
              (override));
  MOCK_METHOD(bool, unsubscribeAvailability, (), (override));
  MOCK_METHOD(bool, offerService, (const Address&), (override));
  MOCK_METHOD(bool, stopOfferService, (const Address&), (override));
  MOCK_METHOD(bool, requestService, (const Address&), (override));
  MOCK_METHOD(bool, releaseService, (const Address&), (override));
  MOCK_METHOD(Result, callMethod,
              (const Address&, std::uint16_t, const void*, std::size_t, void*, std::size_t), (override));
  MOCK_METHOD(bool, subscribeEvents,
              (const Address&, std::uint16_t, const std::vector<std::uint16_t>&, EventHandler), (override));
  MOCK_METHOD(bool, offerEvent, (const Address&, std::uint16_t, const std::vector<std::uint16_t>&),
              (override));
  MOCK_METHOD(bool, stopOfferEvent, (const Address&, std::uint16_t), (override));
  MOCK_METHOD(bool, notifyEvent, (const Address&, std::uint16_t, const void*, std::size_t), (override));
  MOCK_METHOD(bool, unsubscribeEvents, (const Address&), (override));
};

}  // namespace kov::test
