#pragma once
// The controller's Contact ID reporting tables: records, group records and communication
// records, each kind kept under its own key.
//
// On the wire (every answer goes out as 1116, CONTACT_ID_RESPONSE_RSP):
//   116 update record  "text1;value1;...;value7;text2;text3;"   -> "0;"   (key: value3)
//   117 get record     "key;"        -> "text1;value1;...;value7;text2;text3;"
//   118 delete record  "key;"        -> "0;"
//   119 update group   "groupText;groupId;groupValue;"          -> "0;"
//   121 get group      "groupId;"    -> "groupText;groupValue;groupId;"
//   120 delete group   "groupId;"    -> "0;"
//   122 update comm    "commId;commText;commValue;"             -> "0;"   (value 0 to 65535)
//   123 get comm       "commId;"     -> "0;commText;commValue;"
//   124 delete comm    "commId;commText;" -> "0;"   (by the ID; the text isn't compared)
// An update writes or replaces. A text is 0 to kMaxText printable characters other than '#'
// (the host cuts the communication record's answer at '#'). An unknown key is answered
// "-101;", a payload that can't be read "-100;", a new record when all kMaxRecords of its kind
// are taken "-102;".

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "tools/sim/families/Family.h"

namespace zanth::sim {

struct ContactIdRecord {
    std::string text1;
    std::array<int32_t, 7> values{};  // values[2] is the key
    std::string text2;
    std::string text3;
    bool operator==(const ContactIdRecord&) const = default;
};

struct ContactIdGroupRecord {
    std::string text;
    int32_t value = 0;
    bool operator==(const ContactIdGroupRecord&) const = default;
};

struct ContactIdCommRecord {
    std::string text;
    uint16_t value = 0;
    bool operator==(const ContactIdCommRecord&) const = default;
};

class ContactId final : public Family {
  public:
    static constexpr size_t kMaxRecords = 64;
    static constexpr size_t kMaxText = 64;
    static constexpr int kReplyCode = 1116;

    const char* Name() const override { return "Contact ID"; }
    bool Handle(FamilyContext& context, int code, std::string_view payload) override;

    // Any thread.
    std::optional<ContactIdRecord> Record(int32_t key) const;
    std::optional<ContactIdGroupRecord> Group(int32_t groupId) const;
    std::optional<ContactIdCommRecord> Comm(int32_t commId) const;

  private:
    std::string Answer(int code, std::string_view payload);

    mutable std::mutex mutex_;
    std::map<int32_t, ContactIdRecord> records_;
    std::map<int32_t, ContactIdGroupRecord> groups_;
    std::map<int32_t, ContactIdCommRecord> comms_;
};

}  // namespace zanth::sim
