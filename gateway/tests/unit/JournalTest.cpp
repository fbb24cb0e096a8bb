// The journal: ids without gaps across restarts and retention, the intake file's recovery, the
// published mark, and the token checks.
#include <gtest/gtest.h>

#include <filesystem>

#include "gateway/Auth.h"
#include "gateway/Config.h"
#include "gateway/Ingest.h"
#include "gateway/Intake.h"
#include "gateway/Journal.h"
#include "gateway/Metrics.h"
#include "gateway/PayloadCodec.h"

namespace zanthd {
namespace {

struct JournalTest : ::testing::Test {
    std::filesystem::path dir;
    void SetUp() override {
        dir = std::filesystem::temp_directory_path() /
              ("zanthd-journal-" + std::to_string(::getpid()) + "-" +
               ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::remove_all(dir);
        std::filesystem::create_directories(dir);
    }
    void TearDown() override { std::filesystem::remove_all(dir); }
    std::string Path() const { return (dir / "journal.db").string(); }
    static std::vector<Record> Records(int n, int64_t receivedMs) {
        std::vector<Record> out(static_cast<size_t>(n));
        for (Record& r : out) {
            r.kind = "event";
            r.raw = "x";
            r.receivedMs = receivedMs;
        }
        return out;
    }
};

TEST_F(JournalTest, IdsRunWithoutGapsAndAreNeverReused) {
    std::string error;
    {
        Journal j;
        ASSERT_TRUE(j.Open({Path(), false, 100}, &error)) << error;
        auto batch = Records(3, 1000);
        ASSERT_TRUE(j.Append(batch, 0, &error));
        EXPECT_EQ(batch[0].id, 1);
        EXPECT_EQ(batch[2].id, 3);
        // Retention by count keeps the last two; then everything old by age goes.
        EXPECT_EQ(j.ApplyRetention({0, 2, 0}, 2000, 1000), 1);
        EXPECT_EQ(j.ApplyRetention({1, 0, 0}, 1001 + 86400000, 1000), 2);
    }
    Journal j;
    ASSERT_TRUE(j.Open({Path(), false, 100}, &error));
    auto batch = Records(1, 5000);
    ASSERT_TRUE(j.Append(batch, 0, &error));
    EXPECT_EQ(batch[0].id, 4) << "an emptied journal goes on after its last id";
    JournalReader reader;
    ASSERT_TRUE(reader.Open(Path(), &error));
    EXPECT_EQ(reader.OldestId(), 4);
}

TEST_F(JournalTest, RetentionNeverDropsWhatIsNotPublished) {
    std::string error;
    Journal j;
    ASSERT_TRUE(j.Open({Path(), false, 100}, &error));
    j.AttachPublisher(true);
    auto batch = Records(10, 1000);
    ASSERT_TRUE(j.Append(batch, 0, &error));
    EXPECT_EQ(j.ApplyRetention({1, 0, 0}, 1000 + 2 * 86400000LL, 1000), 0);
    ASSERT_TRUE(j.MarkPublished(4, &error));
    EXPECT_EQ(j.ApplyRetention({1, 0, 0}, 1000 + 2 * 86400000LL, 1000), 4);
    JournalReader reader;
    ASSERT_TRUE(reader.Open(Path(), &error));
    EXPECT_EQ(reader.OldestId(), 5);
    // Age: only what is older than the cutoff, found among records of mixed ages.
    j.AttachPublisher(false);
    auto young = Records(2, 1000 + 2 * 86400000LL);
    ASSERT_TRUE(j.Append(young, 0, &error));
    EXPECT_EQ(j.ApplyRetention({1, 0, 0}, 1000 + 2 * 86400000LL, 1000), 6);
    EXPECT_EQ(reader.OldestId(), 11);
}

TEST_F(JournalTest, TheIntakeFileGivesBackWhatTheJournalLacks) {
    std::string error;
    Metrics metrics;
    ZanthPayloadCodec codec;
    {
        Journal j;
        ASSERT_TRUE(j.Open({Path(), false, 100}, &error));
        Intake intake;
        ASSERT_TRUE(intake.Open(Path() + ".intake", &error));
        // Entries 1-2 were committed (the journal's mark says 2); 3-4 were taken and then the
        // process died before its commit; a torn half slot follows.
        auto committed = Records(2, 1);
        ASSERT_TRUE(j.Append(committed, 2, &error));
        for (uint64_t seq = 1; seq <= 4; ++seq) {
            ASSERT_TRUE(intake.Append({seq, 7, 'e', "00:00:01;" + std::to_string(seq) + ";01/01/2025;00:00:00;1;1;1;x;"}, &error));
        }
    }
    {
        FILE* f = std::fopen((Path() + ".intake").c_str(), "ab");
        std::fwrite("ZIN1half", 1, 8, f);
        std::fclose(f);
    }
    Journal j;
    ASSERT_TRUE(j.Open({Path(), false, 100}, &error));
    Intake intake;
    ASSERT_TRUE(intake.Open(Path() + ".intake", &error));
    Ingest ingest(j, intake, codec, metrics, {});
    ASSERT_TRUE(ingest.Recover(&error)) << error;
    EXPECT_EQ(j.LastId(), 4);
    EXPECT_EQ(j.IntakeSeq(), 4u);
    EXPECT_EQ(intake.Bytes(), 0u);
    JournalReader reader;
    ASSERT_TRUE(reader.Open(Path(), &error));
    std::vector<Record> got;
    ASSERT_TRUE(reader.Read(2, 10, "", &got));
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0].mac, "00:00:01");
    EXPECT_EQ(got[0].raw.substr(0, 11), "00:00:01;3;");
    EXPECT_EQ(got[1].raw.substr(0, 11), "00:00:01;4;");
}

TEST(Tokens, HashedScopedAndComparedWhole) {
    std::vector<TokenConfig> tokens = {{"viewer", Sha256Hex("r3ad"), Scope::Read},
                                       {"ops", Sha256Hex("0perate"), Scope::Operator}};
    EXPECT_EQ(Sha256Hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    Auth auth(tokens, false, Scope::Read);
    std::string name;
    std::string h = "Bearer 0perate";
    EXPECT_EQ(auth.Check(&h, &name), Scope::Operator);
    EXPECT_EQ(name, "ops");
    h = "Bearer r3ad";
    EXPECT_EQ(auth.Check(&h, &name), Scope::Read);
    for (const char* bad : {"Bearer r3a", "Bearer r3ad ", "bearer r3ad", "Basic r3ad", "Bearer ", "r3ad"}) {
        h = bad;
        EXPECT_EQ(auth.Check(&h, &name), Scope::None) << bad;
    }
    EXPECT_EQ(auth.Check(nullptr, &name), Scope::None);
    Auth open(tokens, true, Scope::Read);
    EXPECT_EQ(open.Check(nullptr, &name), Scope::Read);
    EXPECT_EQ(name, "anonymous");
    h = "Bearer wrong";
    EXPECT_EQ(open.Check(&h, &name), Scope::None) << "a wrong token is refused even where none is needed";
}

TEST(ConfigFile, MistakesNameTheLineAndWhatWasExpected) {
    auto error = [](const std::string& text) {
        try {
            ParseConfig(text, "/tmp/site.toml");
        } catch (const ConfigError& e) {
            return std::string(e.what());
        }
        return std::string("accepted");
    };
    EXPECT_EQ(error("[library]\nport = 3001\n\nprot = 3\n"),
              "site.toml:4: unknown key library.prot (the keys of [library] are alarm_ring, "
              "blocking_wait_ms, card_load_window, command_deadline_max_ms, command_deadline_ms, "
              "controllers, event_ring, lookup_poll_us, port, queue_poll_ms, ring_seconds, seed_file, "
              "valid)");
    EXPECT_EQ(error("[library]\ncommand_deadline_ms = 20000\ncommand_deadline_max_ms = 15000\n"),
              "site.toml:3: library.command_deadline_max_ms: expected at least command_deadline_ms "
              "(20000), found 15000");
    EXPECT_EQ(error("[[doors]]\nname = \"a\"\ncontroller = \"00:00:01\"\nopen_ms = -1\n"),
              "site.toml:4: doors.open_ms: expected an integer from 0 to 1320000, found -1");
    EXPECT_EQ(error("[library]\n\nport = 70000\n"),
              "site.toml:3: library.port: expected an integer from 1025 to 65535, found 70000");
    EXPECT_EQ(error("[journal]\nsynchronous = \"off\"\n"),
              "site.toml:2: journal.synchronous: expected one of \"normal\", \"full\", found \"off\"");
    EXPECT_EQ(error("[gateway]\ntime_zone = \"Mars/Olympus\"\n"),
              "site.toml:2: gateway.time_zone: expected a zone of the time zone database such as "
              "\"Europe/Berlin\", found \"Mars/Olympus\"");
    EXPECT_EQ(error("[http]\nlisten = \"0.0.0.0:80\"\nallow_anonymous = true\n"),
              "site.toml:3: http.allow_anonymous: expected false unless listen is a loopback "
              "address (127.x.x.x, ::1, localhost), found true");
    EXPECT_EQ(error("[[doors]]\nname = \"a\"\ncontroller = \"00:00:0G\"\n"),
              "site.toml:3: doors.controller: expected the controller's MAC \"XX:XX:XX\", found \"00:00:0G\"");
    EXPECT_EQ(error("[[tokens]]\nname = \"x\"\nsha256 = \"abc\"\n"),
              "site.toml:3: tokens.sha256: expected 64 lower-case hex digits (zanthd --hash-token), found \"abc\"");
    EXPECT_EQ(error("[library\n").substr(0, 11), "site.toml:1");
    // An empty file is a working config: every key has its default.
    Config c = ParseConfig("", "/tmp/site.toml");
    EXPECT_EQ(c.port, 3001);
    EXPECT_EQ(c.journal, "/tmp/journal.db");
    EXPECT_EQ(c.dataDir, "/tmp/data");
}

}  // namespace
}  // namespace zanthd
