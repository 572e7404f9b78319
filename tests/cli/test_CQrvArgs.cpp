// The companion's command line: options anywhere, values joined or apart, "--" ending the
// options, and one-line problems for everything it cannot understand.

#include "cli/CQrvArgs.h"

#include <gtest/gtest.h>

namespace {

CQrvArgs Parsed(const std::vector<std::string>& words) {
    CQrvArgs args;
    EXPECT_TRUE(args.Parse(words)) << args.Problem();
    return args;
}

std::string Problem(const std::vector<std::string>& words) {
    CQrvArgs args;
    EXPECT_FALSE(args.Parse(words));
    return args.Problem();
}

TEST(QrvArgs, OptionsMayStandAnywhereAndTakeTheirValueJoinedOrApart) {
    const CQrvArgs args = Parsed(
        {"--backup-path", "/media/usb/B", "restore", "7", "--verify", "docs", "--to=/tmp/x"});
    EXPECT_EQ(args.Command(), "restore");
    EXPECT_EQ(args.Arguments(), (std::vector<std::string>{"7", "docs"}));
    EXPECT_EQ(args.BackupPath(), "/media/usb/B");
    EXPECT_EQ(args.To(), "/tmp/x");
    EXPECT_TRUE(args.ToGiven());
    EXPECT_TRUE(args.Verify());
    EXPECT_FALSE(args.Json());
}

TEST(QrvArgs, DoubleDashEndsTheOptions) {
    const CQrvArgs args = Parsed({"restore", "3", "--", "--verify", "-odd"});
    EXPECT_EQ(args.Arguments(), (std::vector<std::string>{"3", "--verify", "-odd"}));
    EXPECT_FALSE(args.Verify());
    EXPECT_EQ(Parsed({"find", "-"}).Arguments(), (std::vector<std::string>{"-"}));
}

TEST(QrvArgs, RestoreTakesNoMetadataAndNoOtherCommandDoes) {
    EXPECT_TRUE(Parsed({"restore", "3", "--no-metadata"}).NoMetadata());
    EXPECT_FALSE(Parsed({"restore", "3", "--verify"}).NoMetadata());
    EXPECT_EQ(Problem({"ls", "3", "--no-metadata"}), "'ls' takes no option '--no-metadata'");
    EXPECT_EQ(Problem({"restore", "3", "--no-metadata=yes"}),
              "option '--no-metadata' takes no value");
}

TEST(QrvArgs, CheckTakesReadDataRepairAndJson) {
    const CQrvArgs args = Parsed({"check", "--read-data", "--repair", "--json"});
    EXPECT_TRUE(args.ReadData());
    EXPECT_TRUE(args.Repair());
    EXPECT_TRUE(args.Json());
}

TEST(QrvArgs, HelpAndVersionNeedNoArguments) {
    EXPECT_TRUE(Parsed({"restore", "--help"}).Help());
    EXPECT_TRUE(Parsed({"-h"}).Help());
    EXPECT_TRUE(Parsed({"--version"}).Version());
    EXPECT_EQ(Parsed({}).Command(), "");
}

TEST(QrvArgs, WhatCannotBeUnderstoodIsSaidInOneLine) {
    EXPECT_EQ(Problem({"list"}), "unknown command 'list'");
    EXPECT_EQ(Problem({"runs", "--fast"}), "unknown option '--fast'");
    EXPECT_EQ(Problem({"ls", "--verify", "1"}), "'ls' takes no option '--verify'");
    EXPECT_EQ(Problem({"restore", "1", "--json"}), "'restore' takes no option '--json'");
    EXPECT_EQ(Problem({"restore"}), "'restore' needs a run's bid");
    EXPECT_EQ(Problem({"find"}), "'find' needs a pattern");
    EXPECT_EQ(Problem({"find", "a", "b"}), "'find' takes at most 1 argument, not 2");
    EXPECT_EQ(Problem({"ls", "1", "a", "b"}), "'ls' takes at most 2 arguments, not 3");
    EXPECT_EQ(Problem({"check", "x"}), "'check' takes no arguments");
    EXPECT_EQ(Problem({"check", "--repair"}), "'--repair' works only with '--read-data'");
    EXPECT_EQ(Problem({"runs", "--backup-path"}), "option '--backup-path' needs a folder");
    EXPECT_EQ(Problem({"runs", "--backup-path="}), "option '--backup-path' needs a folder");
    EXPECT_EQ(Problem({"runs", "--json=yes"}), "option '--json' takes no value");
}

} // namespace
