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

TEST(Cut, piecesOfAnySizeGiveTheSameDialogue) {
    for (const Road& road : kRoads)
        playPiecesOfAnySize(road);
}

}  // namespace
}  // namespace tv::test
