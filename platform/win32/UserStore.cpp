#include "platform/UserStore.h"

#include <windows.h>

namespace platform {
namespace {

constexpr const char* kKey = "Software\\Orlan\\ZanthDLL";
constexpr const char* kValue = "LogFilePath";

}  // namespace

std::string UserValuePath() {
    return std::string("HKEY_CURRENT_USER\\") + kKey + "\\" + kValue;
}

bool ReadUserValue(std::string* value) {
    HKEY key = nullptr;
    if (::RegOpenKeyExA(HKEY_CURRENT_USER, kKey, 0, KEY_QUERY_VALUE, &key) != ERROR_SUCCESS)
        return false;
    DWORD type = 0;
    DWORD size = 0;
    LONG rc = ::RegQueryValueExA(key, kValue, nullptr, &type, nullptr, &size);
    std::string text;
    if (rc == ERROR_SUCCESS && (type == REG_SZ || type == REG_EXPAND_SZ)) {
        text.resize(size);
        rc = ::RegQueryValueExA(key, kValue, nullptr, &type, reinterpret_cast<BYTE*>(text.data()),
                                &size);
        text.resize(rc == ERROR_SUCCESS ? size : 0);
    } else if (rc == ERROR_SUCCESS) {
        rc = ERROR_INVALID_DATA;
    }
    ::RegCloseKey(key);
    if (rc != ERROR_SUCCESS) return false;
    // A stored string need not end in its NUL; whatever follows one is not part of it.
    *value = text.substr(0, text.find('\0'));
    return true;
}

bool WriteUserValue(const std::string& value) {
    HKEY key = nullptr;
    if (::RegCreateKeyExA(HKEY_CURRENT_USER, kKey, 0, nullptr, REG_OPTION_NON_VOLATILE,
                          KEY_SET_VALUE, nullptr, &key, nullptr) != ERROR_SUCCESS)
        return false;
    // The registry writes the value whole: no reader ever sees half of it.
    LONG rc = ::RegSetValueExA(key, kValue, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                               static_cast<DWORD>(value.size() + 1));
    ::RegCloseKey(key);
    return rc == ERROR_SUCCESS;
}

}  // namespace platform
