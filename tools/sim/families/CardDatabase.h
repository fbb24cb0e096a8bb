#pragma once
// The controller's card database: cardholder records keyed by unique ID, their deletion and
// undeletion, each cardholder's running status, the counts and the whole-database commands.
//
// On the wire (every answer is the command's code + 1000, its first field the result):
//   21/24/27 add or modify   the add payload of its generation (25, 26 or 27 fields) -> "0;"
//   16/25/35 get by card     "cardNumber;cardSetId;noFormat;pin;"   -> "0;" and the record
//   26 get by unique ID      "uniqueId;cardSetId;noFormat;pin;"     -> "0;" and the record
//   22/23 delete/undelete    "cardSetId;noFormat;cardNumber;pin;"   -> "0;"
//   104/105 delete/undelete  "uniqueId;" (4294967295 may come as -1) -> "0;"
//   76 cardholder status     "uniqueId;" -> "0;stamp;value1;...;value8;"
//   77 reset one status      "uniqueId;" -> "0;"          78 reset all -> "0;"
//   89 number of cards       -> "0;active records;capacity;"
//   103 deleted records      -> "0;deleted records;"
//   52 changeover            "cardholders;" -> "0;"   107 pre-index -> "0;"   108 reload -> "0;"
//
// The record in a get answer, numbered from the result as field 0: 1 card number, 2 card set
// ID, 3 no format, 4 PIN, 5 access type, 6 unique ID, 7 the record's revision, 8-15 access
// groups, 16 passback exempt, 17 "0", 18 extended access, 19 "0", 20 PIN commands, 21 "0",
// 22 start stamp, 23 end stamp, 24 escort ID, 25 in-schedule and 26 out-schedule elevator
// group, 27 "0"; then 28 PIN exempt (codes 25, 26, 35) and 29 card role (code 35 only, as
// only that request's reader has a place for it). Stamps read back as the add sent them.
//
// How this controller behaves where the host side leaves it open:
//  - A card (card set ID and card number) belongs to one record. An add that gives a card held
//    by another active record is refused (kResultCardInUse); a deleted record holding it is
//    dropped for good. Look-ups by card ignore the no-format and PIN fields.
//  - An add of a known unique ID replaces the record (and makes a deleted one active again);
//    fields its generation doesn't carry (PIN exempt, card role) keep their stored values,
//    and the cardholder status stays. Field 7 counts the writes, so a host can tell.
//  - A deleted record reads as deleted (kResultRecordDeleted) for get and status, still counts
//    against the capacity and can be undeleted until a pre-index or changeover drops it.
//    Deleting a deleted record or undeleting an active one changes nothing and answers 0.
//  - The capacity counts every record held, deleted ones too. The first count of 89 is the
//    active records, the second the capacity.
//  - Changeover re-dimensions the database for its number of cardholders: the capacity becomes
//    that number and deleted records are dropped; refused as full if more active records are
//    held. Pre-index rebuilds the index, dropping the deleted records. Reload reads the records
//    back from the controller's stored copy, which holds no runtime state: every cardholder
//    status starts again from nothing.
//  - A cardholder status is the stamp of the last use and eight values, "0" and zeros for a
//    card never used; tests and the zanth-sim program set it with SetStatus.

#include <array>
#include <cstdint>
#include <istream>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tools/sim/families/Family.h"

namespace zanth::sim {

struct CardholderStatus {
    std::string stamp = "0";  // "yyyy/mm/dd-hh:mm:ss" or "0"
    std::array<int32_t, 8> values{};
    bool operator==(const CardholderStatus&) const = default;
};

struct CardRecord {
    int32_t cardSetId = 0;
    int32_t noFormat = 0;
    std::string cardNumber = "0";
    std::string pin = "0";
    int32_t accessType = 1;
    uint32_t uniqueId = 0;
    std::array<int32_t, 8> accessGroups{};
    int32_t extendedAccess = 0;
    int32_t passbackExempt = 0;
    int32_t pinCommands = 0;
    std::string start = "0";  // stamps as the add sent them: date "-" time, or "0"
    std::string end = "0";
    uint32_t escortId = 0;
    int32_t inScheduleElevatorGroup = 0;
    int32_t outScheduleElevatorGroup = 0;
    int32_t pinExempt = 0;
    uint32_t cardRole = 0;
    // Kept by the controller.
    bool deleted = false;
    uint32_t revision = 0;
    CardholderStatus status;
    bool operator==(const CardRecord&) const = default;
};

struct CardCounts {
    size_t active = 0;
    size_t deleted = 0;
    size_t capacity = 0;
};

class CardDatabase final : public Family {
  public:
    static constexpr size_t kDefaultCapacity = 50000;
    static constexpr int32_t kMaxChangeover = 500000;
    static constexpr size_t kMaxTextLength = 64;  // card number and PIN
    static constexpr int kResultRecordDeleted = -103;
    static constexpr int kResultCardInUse = -104;

    const char* Name() const override { return "cards"; }
    bool Handle(FamilyContext& context, int code, std::string_view payload) override;

    // Any thread.
    CardCounts Counts() const;
    std::optional<CardRecord> Find(uint32_t uniqueId) const;
    // Every record, deleted ones too, by unique ID.
    std::vector<CardRecord> Records() const;
    // As an add would: stores the record (its revision and status are the controller's) and
    // returns the result the host would get.
    int Put(const CardRecord& record);
    // False for an unknown unique ID.
    bool SetStatus(uint32_t uniqueId, const CardholderStatus& status);
    // Records already held stay; only new ones beyond it are refused.
    void SetCapacity(size_t capacity);
    void Clear();

    // Loads records from the cards CSV (docs/cards-csv.md): one record a line, the arguments of
    // the add command in the host's order. Each record is checked as an add command is. Stops at
    // the first bad line with its number and what is wrong in `error`; the lines before it stay.
    // Returns the number of records loaded.
    std::optional<size_t> LoadCsv(std::istream& in, std::string* error);

  private:
    // What an add command carries; the fields of later generations are optional.
    struct Add {
        CardRecord record;
        bool hasPinExempt = false;
        bool hasCardRole = false;
    };

    // Nothing for a payload the controller refuses, with the position of the first bad field.
    static std::optional<Add> ParseAdd(std::string_view payload, size_t fieldCount,
                                       std::optional<size_t>* badField = nullptr);
    // The add payload that a CSV line stands for; nothing with `error` set for a bad line.
    static std::optional<std::string> CsvToPayload(std::string_view line, size_t* fieldCount,
                                                   std::string* error);
    static std::string CardKey(int32_t cardSetId, std::string_view cardNumber);
    static std::string RecordText(const CardRecord& r, int getCode);

    // With the mutex held.
    int Store(const Add& add);
    int LookUp(uint32_t uniqueId, CardRecord** record);
    int SetDeleted(uint32_t uniqueId, bool deleted);
    void Erase(std::unordered_map<uint32_t, CardRecord>::iterator it);
    void DropDeleted();
    // The answer's payload; nothing for a code that isn't the card database's.
    std::optional<std::string> Answer(int code, std::string_view payload);

    mutable std::mutex mutex_;
    std::unordered_map<uint32_t, CardRecord> records_;
    std::unordered_map<std::string, uint32_t> byCard_;  // every record, deleted ones too
    size_t deleted_ = 0;
    size_t capacity_ = kDefaultCapacity;
};

}  // namespace zanth::sim
