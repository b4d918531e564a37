#include <unordered_map>
#include <unordered_set>

#include "client_fixture.hpp"

namespace kov::test {
namespace {

using ::testing::_;
using ::testing::ElementsAre;
using ::testing::InSequence;
using ::testing::Return;

TEST_F(ClientTest, AvailabilityReportsDriveTheTableAndTheEventSubscriptions) {
  EXPECT_FALSE(client_->hasAvailableService());
  EXPECT_TRUE(client_->getServiceAddresses().empty());
  EXPECT_EQ(client_->getServiceAddress(3), (Address{3, 0xFFFF}));

  // A first report changes the state even when unavailable (no transport call); a repeat does not.
  EXPECT_TRUE(client_->setAvailable({3, 5}, false));
  EXPECT_FALSE(client_->setAvailable({3, 5}, false));
  EXPECT_CALL(*transport_, subscribeEvents(Address{3, 5}, 3, ElementsAre(1, 2, 3), _)).WillOnce(Return(true));
  EXPECT_TRUE(client_->setAvailable({3, 5}, true));
  EXPECT_TRUE(client_->setAvailable({4, 5}, true));  // no events: never subscribed
  EXPECT_TRUE(client_->setAllAvailable(true).empty());
  EXPECT_EQ(client_->getServiceAvailability(),
            (std::unordered_map<std::uint16_t, bool>{{3, true}, {4, true}}));
  EXPECT_EQ(client_->getServiceAddresses(), (std::unordered_set<Address>{{3, 5}, {4, 5}}));

  // A new instance replaces the old one, which is unsubscribed first; event ids keep accumulating.
  {
    InSequence order;
    EXPECT_CALL(*transport_, unsubscribeEvents(Address{3, 5})).WillOnce(Return(true));
    EXPECT_CALL(*transport_, subscribeEvents(Address{3, 6}, 3, ElementsAre(1, 2, 3, 1, 2, 3), _))
        .WillOnce(Return(true));
  }
  EXPECT_TRUE(client_->setAvailable({3, 6}, true));
  EXPECT_EQ(client_->getServiceAddress(3), (Address{3, 6}));
  EXPECT_EQ(log_.lines(),
            std::vector<std::string>{
                "WARN: Service instance [0x3,0x6] was added for sensor 2a when it already had a known "
                "service instance with a matching service id but a different instance id [0x5]; "
                "removing old instance."});

  // Replaced while available by an unavailable instance: unsubscribed, yet reported as "no change".
  EXPECT_CALL(*transport_, unsubscribeEvents(Address{3, 6})).WillOnce(Return(true));
  EXPECT_FALSE(client_->setAvailable({3, 7}, false));

  makeAvailable(2, 1);
  EXPECT_CALL(*transport_, unsubscribeEvents(Address{2, 1})).WillOnce(Return(true));
  EXPECT_EQ(client_->setAllAvailable(false), (std::unordered_set<std::uint16_t>{2, 4}));
  EXPECT_FALSE(client_->hasAvailableService());

  // Destruction unsubscribes exactly the services still available.
  EXPECT_CALL(*transport_, subscribeEvents(Address{3, 7}, 3, _, _)).WillOnce(Return(true));
  EXPECT_TRUE(client_->setAvailable({3, 7}, true));
  EXPECT_CALL(*transport_, unsubscribeEvents(Address{3, 7})).WillOnce(Return(true));
  client_.reset();
}

TEST_F(ClientTest, SubscriptionFailuresAndRefusedMethodsAreLogged) {
  EXPECT_CALL(*transport_, subscribeEvents(Address{2, 7}, 2, ElementsAre(1, 2), _)).WillOnce(Return(false));
  EXPECT_TRUE(client_->setAvailable({2, 7}, true));
  EXPECT_TRUE(client_->isSupportedAndAvailable(2, 0x8002));
  EXPECT_FALSE(client_->isSupportedAndAvailable(2, 0x8003));
  EXPECT_FALSE(client_->isSupportedAndAvailable(4, 0x8001));
  EXPECT_FALSE(client_->isSupportedAndAvailable(3, 0x8001));
  EXPECT_CALL(*transport_, unsubscribeEvents(Address{2, 7})).WillOnce(Return(false));
  EXPECT_TRUE(client_->setAvailable({2, 7}, false));
  EXPECT_EQ(log_.lines(),
            (std::vector<std::string>{
                "WARN: Failed to subscribe to events of service [0x2,0x7] - event data will not update",
                "ERROR: Service 0x2 does not have a method with id 0x8003",
                "ERROR: Service 0x4 does not have a method with id 0x8001", "WARN: Service 0x3 not available",
                "DEBUG: Failed to unsubscribe from events of service [0x2,0x7] - event data might be "
                "inconsistent"}));
}

}  // namespace
}  // namespace kov::test
