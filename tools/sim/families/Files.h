#pragma once
// The controller's file store: files the host sends are kept whole and can be fetched back byte
// for byte, each with a permission of three octal digits ("644" when created).
//
// On the wire (a path is 1 to 255 printable bytes without ';'):
//   30 "path;"      opens an upload        -> 1030 "0;"
//   31 bytes        a chunk, more follow   -> 1030 "0;"
//   32 bytes        the last chunk         -> 1030 "0;"  (the file is stored now)
//   33 "path;"      asks for a file        -> 1033 bytes (more follow) or 1034 bytes (the last)
//   34 ""           asks for the next chunk -> 1033 or 1034
//   28 "path;"      reads the permission   -> 1028 "0;644;"
//   29 "path;perm;" sets it                -> 1029 "0;"
//   114 "path;"     removes the file       -> 1113 "0;"
// A transfer that can't go on is answered 9980 "result;text;" and closed: -100 for a bad path,
// -101 for no such file or no open transfer, -102 for a full store. A 9980 from the host closes
// the open transfers without an answer. Status and delete answer -101 for a missing file and
// -100 for a bad path or permission.
//
// A test can make the next transfer (either way) go wrong at a given chunk, 1 being the first
// chunk sent or received: FailAtChunk answers it with 9980, StallAtChunk leaves it unanswered,
// DropAtChunk resets the link there.

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "tools/sim/families/Family.h"

namespace zanth::sim {

struct StoredFile {
    std::string bytes;
    std::string permission = "644";
};

class Files final : public Family {
  public:
    static constexpr size_t kChunk = 4086;
    static constexpr size_t kMaxPath = 255;
    static constexpr size_t kMaxFiles = 1000;
    static constexpr size_t kMaxFileSize = 64u << 20;

    const char* Name() const override { return "files"; }
    bool Handle(FamilyContext& context, int code, std::string_view payload) override;

    // Any thread.
    std::optional<StoredFile> Find(const std::string& path) const;
    void Put(const std::string& path, std::string bytes, std::string permission = "644");
    size_t Count() const;
    // Chunks moved either way since the simulator started.
    uint64_t Chunks() const;

    void FailAtChunk(int chunk, int result, std::string text = "Transfer aborted");
    void StallAtChunk(int chunk);
    void DropAtChunk(int chunk);
    void ClearTransferFault();

  private:
    struct Transfer {
        std::string path;
        std::string bytes;
        size_t offset = 0;  // downloads: the next byte to send
        int chunks = 0;     // chunks so far, this one included once counted
    };
    enum class Trouble { None, Fail, Stall, Drop };
    struct TransferFault {
        Trouble trouble = Trouble::None;
        int chunk = 0;
        int result = 0;
        std::string text;
    };

    // The fault due at chunk `chunk` of the current transfer, taken once.
    Trouble TakeFault(int chunk, std::string* answer);
    void Upload(FamilyContext& context, int code, std::string_view payload);
    void Download(FamilyContext& context, int code, std::string_view payload);
    // The next chunk of the open download, or the fault due at it.
    void SendChunk(FamilyContext& context);
    void Status(FamilyContext& context, int code, std::string_view payload);
    void Remove(FamilyContext& context, std::string_view payload);

    mutable std::mutex mutex_;
    std::map<std::string, StoredFile> files_;
    std::optional<Transfer> upload_;
    std::optional<Transfer> download_;
    TransferFault fault_;
    uint64_t chunks_ = 0;
};

}  // namespace zanth::sim
