#include <gtest/gtest.h>

#include "VyrPtp/ActionTypes.h"

using namespace VyrPtp::ActionTypes;

TEST(ActionTypes, NewPktActionTraps) {
   auto a = pktActionFactory(PktType{});
   EXPECT_EQ(a->fwdAction(), FwdAction::trap);
   EXPECT_FALSE(a->tsActions());
}
