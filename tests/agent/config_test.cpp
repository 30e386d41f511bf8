#include "agent/config.h"

#include <gtest/gtest.h>

#include <fstream>

#include "support/storefixture.h"
#include "zel/terminal/textfit.h"

namespace zel {

namespace {

class Config : public testing::Test {
protected:
    // The problem, without the file's name; empty when the text is good.
    std::string Read(const std::string& text) {
        const std::string file = directory_.Path() / "zel.toml";
        directory_.WriteFile("zel.toml", text);
        std::string problem;
        config = AgentConfig();
        if (ReadAgentConfig(file, UnknownName, &config, &problem))
            return "";
        EXPECT_TRUE(problem.starts_with(file)) << problem;
        return problem.substr(file.size());
    }

    AgentConfig config;

private:
    ZEL::test::TempStore directory_;
};

}  // namespace

TEST_F(Config, WhatIsShownReadsAsTheSame) {
    EXPECT_EQ(Read(ShowAgentConfig(AgentConfig())), "") << "defaults are within their bounds";
    const std::string shown = ShowAgentConfig(config);
    EXPECT_EQ(shown, ShowAgentConfig(AgentConfig()));
    EXPECT_EQ(config.storeMaxSize, 10ULL << 30);
    EXPECT_EQ(Read("[store]\nmax_size = 5242880\n[intake]\nkeep_unmapped = false"), "");
    EXPECT_EQ(config.storeMaxSize, 5242880U);
    EXPECT_FALSE(config.keepsUnmapped);
    EXPECT_EQ(Read("[tail]\nfiles = [\"/a\", \"/b c\"]"), "");
    EXPECT_NE(ShowAgentConfig(config).find("files = [\"/a\", \"/b c\"]"), std::string::npos);
    EXPECT_EQ(Read(ShowAgentConfig(config)), "");
    EXPECT_EQ(Read("[rights]\nread_group = \"adm\""), "") << "a group is no path";
    EXPECT_EQ(Read("[store]\nmax_size = 5242880"), "");
    EXPECT_NE(ShowAgentConfig(config).find("max_size = \"5M\""), std::string::npos);
}

TEST_F(Config, MistakesAreToldWithTheirLine) {
    const struct {
        const char* text;
        const char* problem;
    } cases[] = {
        {"[store]\n\nmax_sise = 1",
         R"(:3: [store]: unknown key "max_sise"; did you mean "max_size"?)"},
        {"\n[sotre]", R"(:2: unknown section "sotre"; did you mean "store"?)"},
        {"store = 1", ":1: store is a section: [store]"},
        {"[store]\npath = 3", ":2: store.path is to be a text"},
        {"[store]\npath = \"here\"", ":2: store.path is to be a path from the root"},
        {"[spool]\nhold = 601", ":2: spool.hold is to be between 0 and 600, and is 601"},
        {"[spool]\nhold = -1", ":2: spool.hold is to be a whole number"},
        {"[store]\nmax_size = \"5Q\"",
         ":2: store.max_size is to be a number of bytes or a text such as \"512M\""},
        {"[intake]\nunmapped = 1", ":2: intake.unmapped is to be true or false"},
        {"[tail]\nfiles = [\"/a\",\n\"b\"]",
         ":3: tail.files is to be a list of paths from the root"},
        {"[http]\nsocket = \"\"",
         ": http.socket is empty and http.port is 0, so nobody could reach the service"},
        {"[spool]\npath = \"/var/lib/zel/store/spool\"",
         ": spool.path is not to be within store.path, where a purge takes every folder"},
    };
    for (const auto& row : cases)
        EXPECT_EQ(Read(row.text), row.problem);
    EXPECT_TRUE(Read("[http]\nport = 9280").find("every user of the machine") != std::string::npos);
    EXPECT_TRUE(Read("[store\n").starts_with(":1: "));
}

}  // namespace zel
