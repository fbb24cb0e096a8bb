#pragma once
// What the command line prints: lines for a person on stdout, or JSON lines with --json; notes,
// progress and errors on stderr.

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "tools/cli/Api.h"

namespace zanth::cli {

class JsonObject {
  public:
    JsonObject& Add(std::string_view key, std::string_view text);
    JsonObject& Add(std::string_view key, const char* text) { return Add(key, std::string_view(text)); }
    JsonObject& Add(std::string_view key, int64_t number);
    JsonObject& Add(std::string_view key, int number) { return Add(key, static_cast<int64_t>(number)); }
    JsonObject& Add(std::string_view key, uint64_t number) { return Add(key, static_cast<int64_t>(number)); }
    JsonObject& Add(std::string_view key, double number);
    JsonObject& Add(std::string_view key, bool flag);
    JsonObject& AddValue(std::string_view key, const Value& value);
    JsonObject& AddRaw(std::string_view key, std::string_view json);
    std::string str() const { return "{" + body_ + "}"; }

  private:
    void Key(std::string_view key);
    std::string body_;
};

JsonObject OutputsJson(const Outputs& outputs);

class Output {
  public:
    explicit Output(bool json) : json_(json) {}
    bool json() const { return json_; }
    // A JSON line on stdout, in JSON mode only.
    void Json(const JsonObject& object) const;
    // A line for a person on stdout, in the readable mode only.
    void Line(std::string_view text) const;
    // A note on stderr, in both modes.
    void Note(std::string_view text) const;

  private:
    bool json_;
};

// A progress bar on stderr: count, rate and time left, redrawn in place on a terminal and
// written as a line every few seconds otherwise.
class Progress {
  public:
    // `total` 0: not known. `bytes`: counts are bytes, shown in KB.
    Progress(std::string what, std::string unit, uint64_t total, bool bytes = false);
    ~Progress() { Finish(); }
    void Update(uint64_t done, bool force = false);
    void Finish();
    double Seconds() const;

  private:
    std::string Text(uint64_t done) const;

    std::string what_, unit_;
    uint64_t total_;
    bool bytes_;
    bool terminal_;
    bool drawn_ = false;
    bool finished_ = false;
    std::chrono::steady_clock::time_point start_, last_;
};

}  // namespace zanth::cli
