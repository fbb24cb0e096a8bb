// The diagnostic log: its lines, levels and filter, the two generations across loads, the
// level export, and the move of the log folder.

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "platform/File.h"
#include "stores/LogMon.h"
#include "stores/MsgMon.h"
#include "support/Library.h"
#include "support/Sandbox.h"
#include "zanth.h"

namespace zanth {
namespace {

// The separator the library puts after a log folder.
const std::string kSep(1, platform::kPathSeparator);

using test::LogContains;
using test::LogText;
using test::ReadWholeFile;

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

std::string DateText(std::time_t t) {
    std::tm tm{};
#if defined(_WIN32)
    ::localtime_s(&tm, &t);
#else
    ::localtime_r(&t, &tm);
#endif
    char text[40];
    std::snprintf(text, sizeof text, "%02d/%02d/%4d %02d:%02d:%02d", tm.tm_mon + 1, tm.tm_mday,
                  tm.tm_year + 1900, tm.tm_hour, tm.tm_min, tm.tm_sec);
    return text;
}

const std::string kBlanks(24, ' ');

// "MM/DD/YYYY HH:MM:SS": digits where digits belong, the separators in between.
bool IsDateText(const std::string& text) {
    const std::string shape = "00/00/0000 00:00:00";
    if (text.size() != shape.size()) return false;
    for (size_t i = 0; i < shape.size(); ++i) {
        bool digit = text[i] >= '0' && text[i] <= '9';
        if (shape[i] == '0' ? !digit : text[i] != shape[i]) return false;
    }
    return true;
}

TEST(LogMon, LinesCarryDateSourceAndTextAndAnIndentedSecondText) {
    LogMon log("logmon", "");
    std::time_t before = std::time(nullptr);
    log.Log("AA:BB:CC", 0, "[Worker::Run] first", "second text", false);
    std::time_t after = std::time(nullptr);
    log.Log("workerMon", 50, "[X::Y] alone", "", false);

    std::vector<std::string> lines = Lines(LogText());
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_TRUE(IsDateText(lines[0].substr(0, 19))) << lines[0];
    EXPECT_EQ(lines[0].substr(19), "  logmon Start Zanth DLL version 2.6.0.10");
    const std::string& first = lines[1];
    ASSERT_GT(first.size(), 19u);
    std::string stamp = first.substr(0, 19);
    EXPECT_TRUE(stamp == DateText(before) || stamp == DateText(after)) << stamp;
    EXPECT_EQ(first.substr(19), "  AA:BB:CC [Worker::Run] first");
    EXPECT_EQ(lines[2], kBlanks + "second text");
    EXPECT_EQ(lines[3].substr(19), "  workerMon [X::Y] alone")
        << "no second line for an empty text";
}

TEST(LogMon, LevelDecidesWhatReachesTheFile) {
    LogMon log("logmon", "");
    int32_t level = -1;
    log.GetLevel(&level);
    EXPECT_EQ(level, 50);

    std::string before = LogText();
    log.Log("src", 75, "trace", "and more", false);
    EXPECT_EQ(LogText(), before) << "a trace line at level 50 leaves the file alone";
    log.Log("src", 50, "error", "", false);
    EXPECT_TRUE(LogContains("src error\n"));

    log.SetLevel(0);
    log.Log("src", 25, "fatal", "", false);
    log.Log("src", 0, "always", "", false);
    EXPECT_FALSE(LogContains("fatal"));
    EXPECT_TRUE(LogContains("src always\n"));

    log.SetLevel(-3);
    log.GetLevel(&level);
    EXPECT_EQ(level, 0);
    log.SetLevel(99);
    log.GetLevel(&level);
    EXPECT_EQ(level, 75);
    log.Log("src", 75, "trace now", "", false);
    EXPECT_TRUE(LogContains("src trace now\n"));
}

TEST(LogMon, FilterKeepsPrintableBytesAndAtMostTwoHundred) {
    LogMon log("logmon", "");
    log.Log("raw", 0,
            "a\tb\x01"
            "c\x7f"
            "d\xc3\xa9"
            "e~ ",
            "\r\n\x02", true);
    std::vector<std::string> lines = Lines(LogText());
    ASSERT_EQ(lines.size(), 2u) << "a second text that filters to nothing gives no line";
    EXPECT_EQ(lines[1].substr(19), "  raw abcde~ ");

    std::string longText;
    for (int i = 0; i < 300; ++i) longText += static_cast<char>('0' + i % 10);
    std::string longSecond = "\x01" + longText;
    log.Log("raw", 0, longText.c_str(), longSecond.c_str(), true);
    lines = Lines(LogText());
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[2].substr(19), "  raw " + longText.substr(0, 200));
    EXPECT_EQ(lines[3], kBlanks + longText.substr(0, 200));

    // Without the filter the texts go out as they are.
    log.Log("raw", 0, "tab\there", "", false);
    EXPECT_TRUE(LogContains("raw tab\there\n"));
}

TEST(LogMon, NewLoadKeepsTheFormerLogAsBackup) {
    std::ofstream("ZanthMessages.log") << "former load\n";
    std::ofstream("ZanthMessages.bak") << "older still\n";
    {
        LogMon log("logmon", "");
        EXPECT_EQ(ReadWholeFile("ZanthMessages.bak"), "former load\n");
        std::vector<std::string> lines = Lines(LogText());
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].substr(19), "  logmon Start Zanth DLL version 2.6.0.10");
    }
    std::vector<std::string> lines = Lines(LogText());
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1].substr(19), "  logmon End") << "End at level 0, whatever the level";
}

TEST(LogMon, MissingFolderDropsLinesSilently) {
    {
        LogMon log("logmon", "no-such-folder/");
        log.Log("src", 0, "lost", "", false);
        EXPECT_EQ(log.LogPath(), "no-such-folder/ZanthMessages.log");
    }
    EXPECT_FALSE(std::filesystem::exists("ZanthMessages.log"));
}

// The whole library: start and end lines across loads, and the level export.
TEST(LogLifecycle, LoadsRotateTheLogAndUnloadEndsIt) {
    test::LoadLibrary();
    int32_t level = 0;
    ASSERT_EQ(DebugLevel(0, &level), 0);
    EXPECT_EQ(level, 50);
    test::UnloadLibrary();
    std::string firstLoad = LogText();
    std::vector<std::string> lines = Lines(firstLoad);
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines.front().substr(19), "  logmon Start Zanth DLL version 2.6.0.10");
    EXPECT_EQ(lines.back().substr(19), "  logmon End");

    test::LoadLibrary();
    EXPECT_EQ(ReadWholeFile("ZanthMessages.bak"), firstLoad);
    lines = Lines(LogText());
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0].substr(19), "  logmon Start Zanth DLL version 2.6.0.10");
    test::UnloadLibrary();
}

class LogExportTest : public test::LibraryTest {};

TEST_F(LogExportTest, DebugLevelChecksItsArguments) {
    int32_t level = 76;
    EXPECT_EQ(DebugLevel(1, &level), -10002);
    EXPECT_TRUE(LogContains("master [Master::DebugLevel] debug level must be between 0 and 75\n"));
    level = -1;
    EXPECT_EQ(DebugLevel(1, &level), -10002);
    level = 0;
    ASSERT_EQ(DebugLevel(0, &level), 0);
    EXPECT_EQ(level, 75) << "a refused value leaves the level";

    EXPECT_EQ(DebugLevel(2, &level), -10002);
    EXPECT_TRUE(LogContains("master [Master::DebugLevel] mode value must be between 0 and 1\n"));
    EXPECT_EQ(DebugLevel(-1, &level), -10002);

    level = 0;
    ASSERT_EQ(DebugLevel(1, &level), 0);
    std::string before = LogText();
    level = 76;
    EXPECT_EQ(DebugLevel(1, &level), -10002);
    EXPECT_EQ(LogText(), before) << "the refusal is an error line, below level 0";
    level = -1;
    ASSERT_EQ(DebugLevel(0, &level), 0);
    EXPECT_EQ(level, 0);
}

TEST_F(LogExportTest, GetLogFilePathWithoutValueIsEmpty) {
    char path[256];
    std::memset(path, 'x', sizeof path);
    EXPECT_EQ(GetLogFilePath(path), 0);
    EXPECT_STREQ(path, "");
    std::memset(path, 'x', sizeof path);
    EXPECT_EQ(LogFilePath(0, path), 0);
    EXPECT_STREQ(path, "");
    EXPECT_EQ(LogFilePath(2, path), -10002);
    EXPECT_TRUE(LogContains("master [Master::LogFilePath] mode value must be between 0 and 1\n"));
}

TEST_F(LogExportTest, RefusedFoldersChangeNothing) {
    EXPECT_EQ(SetLogFilePath(""), -10002);
    std::string missing = test::SandboxDir() + "missing";
    EXPECT_EQ(SetLogFilePath(missing.c_str()), -10025);
    char path[256] = "x";
    EXPECT_EQ(GetLogFilePath(path), 0);
    EXPECT_STREQ(path, "");
    EXPECT_FALSE(std::filesystem::exists(missing));
    EXPECT_FALSE(LogContains("Log file path has been changed"));
    // The log is still the one in the working directory.
    Log("probe", 0, "still here");
    EXPECT_TRUE(LogContains("probe still here\n"));
}

TEST_F(LogExportTest, MovingTheFolderRebuildsLogAndStores) {
    std::string folder = test::SandboxDir() + "logs";
    std::filesystem::create_directory(folder);
    ASSERT_EQ(SetLogFilePath(folder.c_str()), 0);

    char path[256] = {};
    ASSERT_EQ(GetLogFilePath(path), 0);
    EXPECT_EQ(std::string(path), folder + kSep);

    // The old log points to the new one and ends.
    std::string oldLog = LogText();
    EXPECT_NE(
        oldLog.find("master [Master::SetLogFilePath] Log file path has been changed. New logs "
                    "will be created at location: \n" +
                    kBlanks + "New Log file path is = " + folder + kSep + "\n"),
        std::string::npos)
        << oldLog;
    EXPECT_EQ(Lines(oldLog).back().substr(19), "  logmon End");

    // The new one starts afresh and points back; the level survived the rebuild.
    std::string newLog = ReadWholeFile(folder + "/ZanthMessages.log");
    std::vector<std::string> lines = Lines(newLog);
    ASSERT_GE(lines.size(), 4u) << newLog;
    EXPECT_EQ(lines[0].substr(19), "  logMon Start Zanth DLL version 2.6.0.10");
    EXPECT_NE(newLog.find("master Object created\n"), std::string::npos);
    EXPECT_NE(newLog.find("master [Master::SetLogFilePath] Log file path has been changed, for "
                          "previous logs refer files from: \n" +
                          kBlanks + "Old Log file path is = " +
                          test::SandboxDir().substr(0, test::SandboxDir().size() - 1)),
              std::string::npos)
        << newLog;
    int32_t level = 0;
    ASSERT_EQ(DebugLevel(0, &level), 0);
    EXPECT_EQ(level, 75);

    for (const char* store : {"/ZanthEvents.log", "/ZanthAlarms.log"}) {
        std::string header = ReadWholeFile(folder + store);
        ASSERT_EQ(header.size(), 144u) << store;
        EXPECT_EQ(std::string(header.c_str()), "5000 144 1 1 0 0");
    }
    EXPECT_EQ(test::Shared().eventMon->Path(), folder + kSep + "ZanthEvents.log");
    Log("probe", 0, "after the move");
    EXPECT_NE(ReadWholeFile(folder + "/ZanthMessages.log").find("probe after the move"),
              std::string::npos);
    EXPECT_EQ(LogText().find("probe after the move"), std::string::npos);
}

TEST_F(LogExportTest, TrailingSeparatorIsDoubledAndTheOldValueNamed) {
    std::string first = test::SandboxDir() + "first/";
    std::string second = test::SandboxDir() + "second";
    std::filesystem::create_directory(first);
    std::filesystem::create_directory(second);
    ASSERT_EQ(SetLogFilePath(first.c_str()), 0);
    char path[256] = {};
    ASSERT_EQ(GetLogFilePath(path), 0);
    EXPECT_EQ(std::string(path), first + kSep);

    // The mode-1 form announces nothing in the old log and names itself in the new one.
    std::string secondArg = second;
    ASSERT_EQ(LogFilePath(1, secondArg.data()), 0);
    EXPECT_EQ(ReadWholeFile(first + "/ZanthMessages.log").find("New logs will be created"),
              std::string::npos);
    std::string newLog = ReadWholeFile(second + "/ZanthMessages.log");
    EXPECT_NE(
        newLog.find("master [Master::LogFilePath] Log file path has been changed, for previous "
                    "logs refer files from: \n" +
                    kBlanks + "Old Log file path is = " + first + kSep + "\n"),
        std::string::npos)
        << newLog;
    ASSERT_EQ(LogFilePath(0, path), 0);
    EXPECT_EQ(std::string(path), second + kSep);
}

TEST(LogFolder, NextLoadUsesTheStoredFolder) {
    std::string folder = test::SandboxDir() + "kept";
    std::filesystem::create_directory(folder);
    test::LoadLibrary();
    ASSERT_EQ(SetLogFilePath(folder.c_str()), 0);
    test::UnloadLibrary();
    std::string firstRun = ReadWholeFile(folder + "/ZanthMessages.log");

    test::LoadLibrary();
    EXPECT_EQ(test::Shared().eventMon->Path(), folder + kSep + "ZanthEvents.log");
    EXPECT_EQ(ReadWholeFile(folder + "/ZanthMessages.bak"), firstRun);
    std::vector<std::string> lines = Lines(ReadWholeFile(folder + "/ZanthMessages.log"));
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0].substr(19), "  logmon Start Zanth DLL version 2.6.0.10");
    test::UnloadLibrary();
}

}  // namespace
}  // namespace zanth
