#include "tools/cli/Output.h"

#include <cmath>
#include <cstdio>

#include "tools/cli/Platform.h"
#include "tools/cli/Text.h"

namespace zanth::cli {

void JsonObject::Key(std::string_view key) {
    if (!body_.empty()) body_ += ",";
    body_ += JsonString(key) + ":";
}

JsonObject& JsonObject::Add(std::string_view key, std::string_view text) {
    Key(key);
    body_ += JsonString(text);
    return *this;
}

JsonObject& JsonObject::Add(std::string_view key, int64_t number) {
    Key(key);
    body_ += std::to_string(number);
    return *this;
}

JsonObject& JsonObject::Add(std::string_view key, double number) {
    Key(key);
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", std::isfinite(number) ? number : 0.0);
    body_ += text;
    return *this;
}

JsonObject& JsonObject::Add(std::string_view key, bool flag) {
    Key(key);
    body_ += flag ? "true" : "false";
    return *this;
}

JsonObject& JsonObject::AddValue(std::string_view key, const Value& value) {
    Key(key);
    body_ += JsonValue(value);
    return *this;
}

JsonObject& JsonObject::AddRaw(std::string_view key, std::string_view json) {
    Key(key);
    body_ += json;
    return *this;
}

JsonObject OutputsJson(const Outputs& outputs) {
    JsonObject o;
    for (const auto& [name, value] : outputs) o.AddValue(name, value);
    return o;
}

void Output::Json(const JsonObject& object) const {
    if (!json_) return;
    std::string line = object.str() + "\n";
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fflush(stdout);
}

void Output::Line(std::string_view text) const {
    if (json_) return;
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

void Output::Note(std::string_view text) const {
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fputc('\n', stderr);
    std::fflush(stderr);
}

Progress::Progress(std::string what, std::string unit, uint64_t total, bool bytes)
    : what_(std::move(what)), unit_(std::move(unit)), total_(total), bytes_(bytes),
      terminal_(platform::IsTerminal(stderr)), start_(std::chrono::steady_clock::now()),
      last_(start_) {}

double Progress::Seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

std::string Progress::Text(uint64_t done) const {
    char line[256];
    double seconds = Seconds();
    double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0;
    std::string count, speed;
    if (bytes_) {
        char c[64];
        if (total_) {
            std::snprintf(c, sizeof c, "%.1f/%.1f KB", done / 1000.0, total_ / 1000.0);
        } else {
            std::snprintf(c, sizeof c, "%.1f KB", done / 1000.0);
        }
        count = c;
        std::snprintf(c, sizeof c, "%.1f KB/s", rate / 1000.0);
        speed = c;
    } else {
        count = std::to_string(done) + (total_ ? "/" + std::to_string(total_) : "") + " " + unit_;
        char c[32];
        std::snprintf(c, sizeof c, "%.1f/s", rate);
        speed = c;
    }
    std::string bar;
    std::string left;
    if (total_) {
        const int width = 24;
        int filled = static_cast<int>(static_cast<double>(done) / static_cast<double>(total_) * width);
        if (filled > width) filled = width;
        bar = "[" + std::string(static_cast<size_t>(filled), '#') +
              std::string(static_cast<size_t>(width - filled), '-') + "] ";
        if (rate > 0 && done < total_) {
            left = "  " + Duration(static_cast<double>(total_ - done) / rate) + " left";
        }
    }
    std::snprintf(line, sizeof line, "%s: %s%s  %s%s", what_.c_str(), bar.c_str(), count.c_str(),
                  speed.c_str(), left.c_str());
    return line;
}

void Progress::Update(uint64_t done, bool force) {
    if (finished_) return;
    auto now = std::chrono::steady_clock::now();
    auto every = terminal_ ? std::chrono::milliseconds(200) : std::chrono::milliseconds(5000);
    if (!force && now - last_ < every) return;
    last_ = now;
    std::string text = Text(done);
    if (terminal_) {
        std::fprintf(stderr, "\r\033[K%s", text.c_str());
        drawn_ = true;
    } else {
        std::fprintf(stderr, "%s\n", text.c_str());
    }
    std::fflush(stderr);
}

void Progress::Finish() {
    if (finished_) return;
    finished_ = true;
    if (terminal_ && drawn_) {
        std::fprintf(stderr, "\r\033[K");
        std::fflush(stderr);
    }
}

}  // namespace zanth::cli
