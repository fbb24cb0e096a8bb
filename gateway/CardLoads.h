#pragma once
// Bulk loads of card records into one controller's database. Every record is checked against
// the model before the first is sent (a mistake names "cards[17].uniqueId" and nothing is sent).
// The records then go out through the Rsp form, a window of them queued at once for the
// controller's Worker, so that each of its turns carries a record instead of waiting for the
// host between replies. Progress is kept per load and read as a resource; a load is journaled
// (with its operator's name) when it starts and when it ends, not record by record.

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "gateway/CallPath.h"

namespace zanthd {

class Ingest;

class CardLoads {
  public:
    CardLoads(CallPath& calls, Ingest& ingest, int window);

    // The card record with the defaults of what it leaves out (accessType 1, dates "0", the
    // rest 0), for the add command; `key` holds what the resource's path gives.
    static nlohmann::json CardArgs(const nlohmann::json& given, const nlohmann::json& key);
    static const char* const kExport;

    // Checks every record and starts the load; false with the refusal (400 naming the field).
    bool Start(const std::string& mac, const nlohmann::json& cards, const std::string& actor,
               int deadlineMs, int64_t* id, CallAnswer* refusal);
    bool Progress(int64_t id, nlohmann::json* out) const;
    nlohmann::json List() const;

  private:
    struct Load;
    void Pump(const std::shared_ptr<Load>& load);
    void Done(const std::shared_ptr<Load>& load, size_t index, const CallAnswer& answer);
    void Audit(const std::shared_ptr<Load>& load, const std::string& action);
    static nlohmann::json Json(const Load& load);

    CallPath& calls_;
    Ingest& ingest_;
    const size_t window_;
    mutable std::mutex mutex_;
    std::map<int64_t, std::shared_ptr<Load>> loads_;
    int64_t nextId_ = 1;
};

}  // namespace zanthd
