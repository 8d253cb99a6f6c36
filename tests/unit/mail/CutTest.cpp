// The connection ends at every byte of a whole dialogue in clear, in both directions.
#include "tests/unit/mail/CutPlay.h"

namespace tv::test {
namespace {

TEST(Cut, atEveryByte) {
    for (const char* steps : {"whole", "whole-piped"}) {
        playRoad({steps, {}, [steps](MailWorld& world) {
                      FakeLink& link = world.serve(steps);
                      return CutServer{&link, [&link] { return !messageOf(link).empty(); }};
                  }});
    }
}

TEST(Cut, abortedConnect) {
    MailWorld world;
    world.compose();
    world.net.silent(kServer, 25);
    Watcher monitor;
    stopInASecond(monitor, world.clock);
    EXPECT_FALSE(world.send(&monitor));
    EXPECT_TRUE(contains(world.transcript(), "App aborted in event callback"));
}

}  // namespace
}  // namespace tv::test
