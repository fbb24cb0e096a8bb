#include "tools/sim/families/Files.h"

#include <algorithm>

#include "protocol/Codes.h"

namespace zanth::sim {
namespace {

std::string Error(int result, std::string_view text) {
    return std::to_string(result) + ";" + std::string(text) + ";";
}

bool IsPath(std::string_view path) {
    if (path.empty() || path.size() > Files::kMaxPath) return false;
    return std::all_of(path.begin(), path.end(),
                       [](char c) { return c >= 0x20 && c < 0x7f && c != ';'; });
}

bool IsPermission(std::string_view permission) {
    return permission.size() == 3 && std::all_of(permission.begin(), permission.end(),
                                                 [](char c) { return c >= '0' && c <= '7'; });
}

}  // namespace

bool Files::Handle(FamilyContext& context, int code, std::string_view payload) {
    std::lock_guard<std::mutex> lock(mutex_);
    switch (code) {
        case ZANTH_SEND_FILE:
        case ZANTH_SEND_FILE_MORE:
        case ZANTH_SEND_FILE_END:
            Upload(context, code, payload);
            return true;
        case ZANTH_GET_FILE:
        case ZANTH_GET_FILE_RSP:
            Download(context, code, payload);
            return true;
        case ZANTH_GET_FILE_STATUS:
        case ZANTH_SET_FILE_STATUS:
            Status(context, code, payload);
            return true;
        case ZANTH_DELETE_FILE:
            Remove(context, payload);
            return true;
        case ZANTH_FILE_TRANSFER_ERROR:
            // The host gives up: whatever was under way is dropped, and nothing is answered.
            upload_.reset();
            download_.reset();
            return true;
        default:
            return false;
    }
}

Files::Trouble Files::TakeFault(int chunk, std::string* answer) {
    if (fault_.trouble == Trouble::None || fault_.chunk != chunk) return Trouble::None;
    Trouble trouble = fault_.trouble;
    *answer = Error(fault_.result, fault_.text);
    fault_ = {};
    return trouble;
}

void Files::Upload(FamilyContext& context, int code, std::string_view payload) {
    if (code == ZANTH_SEND_FILE) {
        std::string_view path = payload.substr(0, payload.find(';'));
        if (!IsPath(path)) {
            context.Reply(ZANTH_FILE_TRANSFER_ERROR, Error(kResultBadArgument, "Bad file name"));
            return;
        }
        if (files_.count(std::string(path)) == 0 && files_.size() >= kMaxFiles) {
            context.Reply(ZANTH_FILE_TRANSFER_ERROR, Error(kResultStoreFull, "File store full"));
            return;
        }
        // A new upload replaces one left open.
        upload_ = Transfer{std::string(path), {}, 0, 0};
        context.Reply(ZANTH_SEND_FILE_RSP, "0;");
        return;
    }
    if (!upload_) {
        context.Reply(ZANTH_FILE_TRANSFER_ERROR, Error(kResultUnknownRecord, "No transfer open"));
        return;
    }
    ++chunks_;
    std::string answer;
    switch (TakeFault(++upload_->chunks, &answer)) {
        case Trouble::Fail:
            upload_.reset();
            context.Reply(ZANTH_FILE_TRANSFER_ERROR, answer);
            return;
        case Trouble::Stall:
            return;
        case Trouble::Drop:
            upload_.reset();
            context.ResetLink();
            return;
        case Trouble::None:
            break;
    }
    if (upload_->bytes.size() + payload.size() > kMaxFileSize) {
        upload_.reset();
        context.Reply(ZANTH_FILE_TRANSFER_ERROR, Error(kResultStoreFull, "File too large"));
        return;
    }
    upload_->bytes.append(payload);
    if (code == ZANTH_SEND_FILE_END) {
        StoredFile& file = files_[upload_->path];
        file.bytes = std::move(upload_->bytes);
        upload_.reset();
    }
    context.Reply(ZANTH_SEND_FILE_RSP, "0;");
}

void Files::Download(FamilyContext& context, int code, std::string_view payload) {
    if (code == ZANTH_GET_FILE) {
        std::string_view path = payload.substr(0, payload.find(';'));
        if (!IsPath(path)) {
            context.Reply(ZANTH_FILE_TRANSFER_ERROR, Error(kResultBadArgument, "Bad file name"));
            return;
        }
        auto it = files_.find(std::string(path));
        if (it == files_.end()) {
            download_.reset();
            context.Reply(ZANTH_FILE_TRANSFER_ERROR, Error(kResultUnknownRecord, "File not found"));
            return;
        }
        // The file as it stands now; a new request replaces one left open.
        download_ = Transfer{std::string(path), it->second.bytes, 0, 0};
    } else if (!download_) {
        context.Reply(ZANTH_FILE_TRANSFER_ERROR, Error(kResultUnknownRecord, "No transfer open"));
        return;
    }
    SendChunk(context);
}

void Files::SendChunk(FamilyContext& context) {
    ++chunks_;
    std::string answer;
    switch (TakeFault(++download_->chunks, &answer)) {
        case Trouble::Fail:
            download_.reset();
            context.Reply(ZANTH_FILE_TRANSFER_ERROR, answer);
            return;
        case Trouble::Stall:
            return;
        case Trouble::Drop:
            download_.reset();
            context.ResetLink();
            return;
        case Trouble::None:
            break;
    }
    const size_t left = download_->bytes.size() - download_->offset;
    const size_t n = std::min(left, kChunk);
    std::string_view chunk(download_->bytes.data() + download_->offset, n);
    download_->offset += n;
    if (n == left) {
        context.Reply(ZANTH_GET_FILE_END, chunk);
        download_.reset();
    } else {
        context.Reply(ZANTH_GET_FILE_MORE, chunk);
    }
}

void Files::Status(FamilyContext& context, int code, std::string_view payload) {
    PayloadReader reader(payload);
    std::string_view path = reader.Raw(0);
    if (!IsPath(path)) {
        context.ReplyResult(code, kResultBadArgument);
        return;
    }
    auto it = files_.find(std::string(path));
    if (code == ZANTH_GET_FILE_STATUS) {
        if (it == files_.end()) {
            context.ReplyResult(code, kResultUnknownRecord);
        } else {
            context.Reply(ZANTH_GET_FILE_STATUS_RSP, "0;" + it->second.permission + ";");
        }
        return;
    }
    std::string_view permission = reader.Raw(1);
    if (!IsPermission(permission)) {
        context.ReplyResult(code, kResultBadArgument);
    } else if (it == files_.end()) {
        context.ReplyResult(code, kResultUnknownRecord);
    } else {
        it->second.permission = std::string(permission);
        context.ReplyResult(code, kResultOk);
    }
}

void Files::Remove(FamilyContext& context, std::string_view payload) {
    std::string_view path = payload.substr(0, payload.find(';'));
    int result = kResultOk;
    if (!IsPath(path)) {
        result = kResultBadArgument;
    } else if (files_.erase(std::string(path)) == 0) {
        result = kResultUnknownRecord;
    }
    context.Reply(ZANTH_DELETE_FILE_RSP, std::to_string(result) + ";");
}

std::optional<StoredFile> Files::Find(const std::string& path) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = files_.find(path);
    if (it == files_.end()) return std::nullopt;
    return it->second;
}

void Files::Put(const std::string& path, std::string bytes, std::string permission) {
    std::lock_guard<std::mutex> lock(mutex_);
    files_[path] = StoredFile{std::move(bytes), std::move(permission)};
}

size_t Files::Count() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return files_.size();
}

uint64_t Files::Chunks() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return chunks_;
}

void Files::FailAtChunk(int chunk, int result, std::string text) {
    std::lock_guard<std::mutex> lock(mutex_);
    fault_ = {Trouble::Fail, chunk, result, std::move(text)};
}

void Files::StallAtChunk(int chunk) {
    std::lock_guard<std::mutex> lock(mutex_);
    fault_ = {Trouble::Stall, chunk, 0, {}};
}

void Files::DropAtChunk(int chunk) {
    std::lock_guard<std::mutex> lock(mutex_);
    fault_ = {Trouble::Drop, chunk, 0, {}};
}

void Files::ClearTransferFault() {
    std::lock_guard<std::mutex> lock(mutex_);
    fault_ = {};
}

}  // namespace zanth::sim
