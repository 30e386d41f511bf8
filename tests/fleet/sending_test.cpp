#include <gtest/gtest.h>

#include "agent/following/followplace.h"
#include "fleet/hostidentifier.h"
#include "fleet/sending/sendingstate.h"
#include "support/storefixture.h"

namespace zel::fleet {

// Were it ever another text, each machine of a fleet would become another one.
TEST(HostIdentifier, StaysWhatItIs) {
    EXPECT_EQ(HostIdentifierOf("00112233445566778899aabbccddeeff\n"),
              "ed4c84794f63489d8668512e8d79df6e");
    EXPECT_NE(HostIdentifierOf("00112233445566778899aabbccddeefe"),
              HostIdentifierOf("00112233445566778899aabbccddeeff"));
    for (const char* const none : {"", "uninitialized", "00112233445566778899aabbccddeefg",
                                   "00112233445566778899aabbccddeeff00"})
        EXPECT_EQ(HostIdentifierOf(none), "") << none;
}

TEST(HostIdentifier, TurnsOfHostsAreSpread) {
    int early = 0;
    for (int i = 0; i < 1000; ++i) {
        const double turn = TurnOf("host" + std::to_string(i));
        ASSERT_TRUE(turn >= 0 && turn < 1);
        early += turn < 0.5 ? 1 : 0;
    }
    EXPECT_GT(early, 400);
    EXPECT_LT(early, 600);
}

TEST(SendingState, ComesBackAsItWasKept) {
    const ZEL::test::TempStore directory;
    const StateFile file(std::string(directory.Path() / "state"));
    SendingState kept{"http://h:1/db",
                      "h",
                      PlaceBehind("r<receive_time>2026-11-22T10:00:00.123Z<sequence>0000000005"),
                      7,
                      8,
                      9,
                      {{"20261122999", "1 2"}}};
    std::string problem;
    ASSERT_TRUE(file.Save(kept, &problem)) << problem;
    SendingState read;
    read.fleet = kept.fleet;
    read.host = kept.host;
    bool isThere = false;
    ASSERT_TRUE(file.Load(&read, &isThere, &problem)) << problem;
    EXPECT_TRUE(isThere);
    EXPECT_EQ(std::tie(read.place, read.sent, read.refused, read.missed, read.folders),
              std::tie(kept.place, kept.sent, kept.refused, kept.missed, kept.folders));
}

// Nobody goes on from half a position, or from another's.
TEST(SendingState, OtherFilesAreRefused) {
    const ZEL::test::TempStore directory;
    const StateFile file(std::string(directory.Path() / "state"));
    const std::string good = "fleet http://h:1/db\nhost h\n";
    for (const std::string& text :
         {std::string(), std::string("notes\n"), good + "position 2026\n", good + "sent -1\n",
          good + "sent 1", std::string("fleet http://h:2/db\nhost h\n"),
          std::string("fleet http://h:1/db\nhost other\n")}) {
        directory.WriteFile("state", text);
        SendingState state;
        state.fleet = "http://h:1/db";
        state.host = "h";
        std::string problem;
        bool isThere = false;
        EXPECT_FALSE(file.Load(&state, &isThere, &problem)) << text;
        EXPECT_NE(problem, "") << text;
    }
}

}  // namespace zel::fleet
