// The connection ends at every byte of a whole dialogue, in both directions: the result is never a
// false success, and the server never gets the message twice.
#include "tests/unit/mail/MailDialogue.h"

namespace tv::test {
namespace {

struct Cut {
    bool ofClient;  // after so many bytes of the client, otherwise of the server
    size_t bytes;
    Ending ending;
    bool piped;
};

Turns script(bool piped) {
    return piped ? wholeSendPiped() : wholeSend();
}

// Bytes of one undisturbed send, without its QUIT.
struct Sizes {
    size_t client;
    size_t server;
};

Sizes measure(bool piped) {
    MailWorld world;
    world.compose();
    FakeLink& link = world.serve(script(piped));
    EXPECT_TRUE(world.mailMan.SendEmail(world.email));
    return {link.fromClient.size(), link.bytesToClient};
}

// A copy counts as accepted as soon as the server has the whole terminator.
size_t copies(const std::vector<FakeLink*>& links) {
    size_t count = 0;
    for (const FakeLink* link : links) {
        count += !messageOf(*link).empty();
    }
    return count;
}

void play(const Cut& cut, const Sizes& sizes) {
    SCOPED_TRACE(std::string(cut.ofClient ? "client byte " : "server byte ") +
                 std::to_string(cut.bytes) + ", ending " +
                 std::to_string(static_cast<int>(cut.ending)) + (cut.piped ? ", piped" : ""));
    MailWorld world(Properties{{"ReadTimeout", "50"}, {"ConnectTimeout", "50"}});
    world.compose();
    FakeLink& first = world.serve(script(cut.piped));
    first.cut = cut.ending;
    (cut.ofClient ? first.cutAfterClientBytes : first.cutAfterServerBytes) = cut.bytes;
    FakeLink& second = world.serve(script(cut.piped));
    first.mayEndEarly = second.mayEndEarly = true;
    const bool sent = world.mailMan.SendEmail(world.email);
    const std::string transcript = world.transcript();
    EXPECT_LE(copies({&first, &second}), 1u);
    EXPECT_LE(world.net.connects.size(), 2u);
    if (sent) {
        EXPECT_EQ(copies({&first, &second}), 1u);
        EXPECT_TRUE(transcript.ends_with("250 taken\r\n")) << transcript;
    } else {
        EXPECT_FALSE(transcript.empty());
        EXPECT_NE(world.word(), "Success");
        EXPECT_NE(world.word(), "Failed") << transcript;
        const bool whole = !cut.ofClient && cut.bytes >= sizes.server;
        EXPECT_FALSE(whole) << "everything had arrived";
    }
    const bool retried = !world.clock.sleeps.empty();
    EXPECT_TRUE(!retried || world.clock.sleeps == std::vector<uint32_t>{500});
    EXPECT_FALSE(retried && !messageOf(first).empty()) << "sent again after the terminator";
}

TEST(Cut, atEveryByte) {
    for (const bool piped : {false, true}) {
        const Sizes sizes = measure(piped);
        for (const Ending ending : {Ending::Eof, Ending::Reset, Ending::Stall}) {
            for (size_t at = 1; at <= sizes.server; ++at) {
                play({false, at, ending, piped}, sizes);
            }
            for (size_t at = 1; at <= sizes.client; ++at) {
                play({true, at, ending, piped}, sizes);
            }
        }
    }
}

// Short reads, short writes and a window that fills change nothing.
TEST(Cut, piecesOfAnySizeGiveTheSameDialogue) {
    std::string whole;
    for (const bool piped : {false, true}) {
        for (size_t size = 1; size <= 64; size = size * 2 + 1) {
            MailWorld world;
            world.compose();
            FakeLink& link = world.serve(script(piped));
            link.maxReceive = size;
            link.maxSend = size;
            link.sendWindow = 3 * size;
            EXPECT_TRUE(world.mailMan.SendEmail(world.email));
            if (whole.empty()) whole = messageOf(link);
            EXPECT_EQ(messageOf(link), whole);
        }
    }
}

}  // namespace
}  // namespace tv::test
