// The connection ends at every byte of a whole dialogue in clear, in both directions.
#include "tests/unit/mail/CutPlay.h"

namespace tv::test {
namespace {

Road plainRoad(const char* name, const Turns& turns) {
    return {name, {}, [turns](MailWorld& world) {
                FakeLink& link = world.serve(turns);
                return CutServer{&link, [&link] { return !messageOf(link).empty(); }};
            }};
}

const Road kRoads[] = {plainRoad("line by line", wholeSend()),
                       plainRoad("pipelined", wholeSendPiped())};

TEST(Cut, atEveryByte) {
    for (const Road& road : kRoads)
        playCutsAtEveryByte(road, {Ending::Eof, Ending::Reset, Ending::Stall});
}

TEST(Cut, abortsAtEveryByte) {
    for (const Road& road : kRoads)
        playAbortsAtEveryByte(road);
    MailWorld world;
    world.compose();
    world.net.silent(kServer, 25);
    StopsAt monitor(world.clock, 1000);
    EXPECT_FALSE(world.mailMan.SendEmail(world.email, &monitor));
    EXPECT_TRUE(contains(world.transcript(), "App aborted in event callback"));
}

TEST(Cut, piecesOfAnySizeGiveTheSameDialogue) {
    for (const Road& road : kRoads)
        playPiecesOfAnySize(road);
}

}  // namespace
}  // namespace tv::test
