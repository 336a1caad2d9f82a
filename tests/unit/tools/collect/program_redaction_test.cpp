// Secrets in a package.
#include "program.h"

namespace support {
namespace {

TEST_F(CollectProgram, MasksSecretsInTextsAndCountsThem) {
    WriteFile("logs/text", "password=abc\ntoken: def\nPIN 1234\n");
    WriteFile("logs/binary", std::string("password=abc\0", 13));
    WriteFile("patterns", "PIN (\\d+)\n");
    EXPECT_EQ(Run({"logs", "--redact-patterns", "patterns", "--output", "p.tar.zst"}), 0) << Contents("err");
    EXPECT_TRUE(Holds(Contents("err"), "ominspectctl: 3 secrets are masked\n")) << Contents("err");
    const auto members = ReadArchive("p.tar.zst");
    EXPECT_EQ(MemberOf(members, "p/files/logs/text").content, "password=***\ntoken: ***\nPIN ****\n");
    EXPECT_EQ(MemberOf(members, "p/files/logs/binary").content, std::string("password=abc\0", 13));
    const json::Value document = Manifest(members, "p");
    const json::View manifest = document.Read();
    CheckSums(members, manifest, "p");
    EXPECT_EQ(manifest["redacted"].Flag(), true);
    EXPECT_EQ(manifest["files"].At(0)["binary"].Flag(), true);
    EXPECT_FALSE(manifest["files"].At(0)["masked"]);
    EXPECT_EQ(NumberAt(manifest["files"].At(1), "masked"), 3U);
    EXPECT_EQ(Contents("logs/text"), "password=abc\ntoken: def\nPIN 1234\n");
    WriteFile("patterns", "(");
    EXPECT_EQ(Run({"logs", "--redact-patterns", "patterns", "--output", "q.tar.zst"}), 2);
    EXPECT_EQ(Contents("err"), "ominspectctl: patterns, line 1: missing ): (\n");
}

TEST_F(CollectProgram, LeavesSecretsAloneWhenAsked) {
    WriteFile("one", "password=abc");
    EXPECT_EQ(Run({"one", "--no-redact", "--output", "p.tar.zst"}), 0);
    const auto members = ReadArchive("p.tar.zst");
    EXPECT_EQ(MemberOf(members, "p/files/one").content, "password=abc");
    const json::Value document = Manifest(members, "p");
    EXPECT_EQ(document.Read()["redacted"].Flag(), false);
    EXPECT_FALSE(document.Read()["files"].At(0)["masked"]);
    EXPECT_FALSE(Holds(Contents("err"), "masked")) << Contents("err");
    EXPECT_EQ(Run({"one", "--output", "q.tar.zst"}), 0);
    EXPECT_TRUE(Holds(Contents("err"), "ominspectctl: 1 secret is masked\n")) << Contents("err");
}

}  // namespace
}  // namespace support
