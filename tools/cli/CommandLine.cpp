#include "tools/cli/CommandLine.h"

#include <cstdlib>

#include "tools/cli/Text.h"
#include "tools/cli/Verbs.h"

namespace zanth::cli {

const std::vector<OptionSpec>& GlobalOptions() {
    static const std::vector<OptionSpec> options = {
        {"--port", "P", "the port the controllers connect to (default 3001)"},
        {"--wait", "MAC[,MAC]", "wait for these controllers too before the command runs"},
        {"--timeout", "S", "how long to wait for a controller (default 30 s)"},
        {"--contact", "HOST:PORT[,...]", "call the controllers at these addresses (ContactController)"},
        {"--valid", "LIST", "the valid list (default: the MACs the command names, else ALL)"},
        {"--gateway", "URL", "work through zanthd at URL (http:// or https://) instead of the library"},
        {"--token", "T", "the gateway's bearer token (default: the environment's ZANTH_TOKEN)"},
        {"--ca", "FILE", "the CA certificate (PEM) behind an https gateway's certificate"},
        {"--data-dir", "DIR", "the command line's own folder for the library's files"},
        {"--library", "PATH", "the library to load (default: beside zanth, ZANTH_LIBRARY, or the search path)"},
        {"--json", nullptr, "JSON lines on stdout instead of text for a person"},
        {"--help", nullptr, "this help, or a command's (zanth help COMMAND)"},
        {"--version", nullptr, "the command line's and the library's version"},
    };
    return options;
}

namespace {

const OptionSpec* FindOption(const std::vector<OptionSpec>& specs, const std::string& name) {
    for (const OptionSpec& s : specs) {
        if (name == s.name) return &s;
    }
    return nullptr;
}

double Seconds(const std::string& option, const std::string& value) {
    char* end = nullptr;
    double s = std::strtod(value.c_str(), &end);
    if (value.empty() || *end != '\0' || !(s >= 0) || s > 86400 * 365) {
        throw UsageError(option + " wants a number of seconds, not '" + value + "'");
    }
    return s;
}

void SetGlobal(Invocation& inv, const std::string& name, const std::string& value) {
    if (name == "--port") {
        std::optional<int64_t> p = ParseInteger(value);
        if (!p || *p < 1025 || *p > 65535) throw UsageError("--port wants 1025 to 65535, not '" + value + "'");
        inv.port = static_cast<int>(*p);
        inv.portGiven = true;
    } else if (name == "--wait") {
        for (const std::string& m : Split(value, ',')) {
            std::string mac(Trim(m));
            if (mac.empty()) throw UsageError("--wait wants MACs separated by commas, not '" + value + "'");
            inv.wait.push_back(mac);
        }
    } else if (name == "--timeout") {
        inv.timeout = Seconds(name, value);
    } else if (name == "--contact") {
        for (const std::string& c : Split(value, ',')) {
            std::string contact(Trim(c));
            size_t colon = contact.rfind(':');
            std::optional<int64_t> port =
                colon == std::string::npos ? std::nullopt : ParseInteger(contact.substr(colon + 1));
            if (colon == 0 || !port || *port < 1 || *port > 65535) {
                throw UsageError("--contact wants HOST:PORT, not '" + contact + "'");
            }
            inv.contacts.push_back(contact);
        }
    } else if (name == "--valid") {
        inv.valid = value;
    } else if (name == "--data-dir") {
        if (value.empty()) throw UsageError("--data-dir wants a folder");
        inv.dataDir = value;
    } else if (name == "--library") {
        inv.library = value;
    } else if (name == "--gateway") {
        if (!ParseGatewayUrl(value)) {
            throw UsageError("--gateway wants http://HOST:PORT or https://HOST:PORT, not '" + value + "'");
        }
        inv.gateway = value;
    } else if (name == "--token") {
        if (value.empty()) throw UsageError("--token wants the gateway's token");
        inv.token = value;
    } else if (name == "--ca") {
        if (value.empty()) throw UsageError("--ca wants a file of PEM certificates");
        inv.ca = value;
    } else if (name == "--json") {
        inv.json = true;
    } else if (name == "--help") {
        inv.help = true;
    } else if (name == "--version") {
        inv.version = true;
    }
}

// What doesn't go together with --gateway, or only with it.
void CheckGatewayOptions(const Invocation& inv) {
    if (inv.gateway.empty()) {
        if (!inv.token.empty()) throw UsageError("--token is the gateway's: it goes with --gateway URL");
        if (!inv.ca.empty()) throw UsageError("--ca is for an https gateway: it goes with --gateway https://...");
        return;
    }
    const char* clash = inv.portGiven ? "--port" : !inv.contacts.empty() ? "--contact"
                        : !inv.valid.empty() ? "--valid" : !inv.library.empty() ? "--library" : nullptr;
    if (clash) {
        throw UsageError(std::string(clash) + " has no meaning with --gateway: zanthd holds the library, its port "
                         "and its valid list");
    }
    if (!inv.ca.empty() && !ParseGatewayUrl(inv.gateway)->tls) {
        throw UsageError("--ca is for an https gateway, and --gateway is " + inv.gateway);
    }
}

std::vector<std::string> OptionNames(const Verb* verb) {
    std::vector<std::string> names;
    for (const OptionSpec& s : GlobalOptions()) names.emplace_back(s.name);
    if (verb) {
        for (const OptionSpec& s : verb->options) names.emplace_back(s.name);
    }
    return names;
}

}  // namespace

Invocation Parse(const std::vector<std::string>& argv) {
    Invocation inv;
    std::vector<std::string> words;
    bool rest = false;
    // The verb is known once its words are seen: its own options come after them, global
    // options anywhere.
    auto verbOf = [&words]() -> const Verb* {
        if (words.empty()) return nullptr;
        if (const Verb* v = FindVerb(words[0])) return v;
        if (words.size() >= 2) return FindVerb(words[0] + " " + words[1]);
        return nullptr;
    };
    for (size_t i = 0; i < argv.size(); ++i) {
        const std::string& a = argv[i];
        if (rest || a.size() < 2 || a[0] != '-' || (a[1] != '-' && a != "-h")) {
            words.push_back(a);
            continue;
        }
        if (a == "--") {
            rest = true;
            continue;
        }
        std::string name = a == "-h" ? "--help" : a;
        std::optional<std::string> value;
        size_t equals = name.find('=');
        if (equals != std::string::npos) {
            value = name.substr(equals + 1);
            name = name.substr(0, equals);
        }
        const Verb* verb = verbOf();
        const OptionSpec* spec = FindOption(GlobalOptions(), name);
        bool global = spec != nullptr;
        if (!spec && verb) spec = FindOption(verb->options, name);
        if (!spec) {
            std::string why = "unknown option " + name + DidYouMean(Closest(name, OptionNames(verb), 2));
            throw UsageError(why, verb);
        }
        if (spec->value && !value) {
            if (i + 1 >= argv.size()) throw UsageError(name + " wants a value (" + spec->value + ")", verb);
            value = argv[++i];
        } else if (!spec->value && value) {
            throw UsageError(name + " takes no value", verb);
        }
        if (global) {
            SetGlobal(inv, name, value.value_or(""));
        } else {
            inv.options[name] = value.value_or("");
        }
    }
    CheckGatewayOptions(inv);
    if (words.empty()) return inv;
    if (const Verb* v = FindVerb(words[0])) {
        inv.verb = v;
        words.erase(words.begin());
    } else if (words.size() >= 2 && FindVerb(words[0] + " " + words[1])) {
        inv.verb = FindVerb(words[0] + " " + words[1]);
        words.erase(words.begin(), words.begin() + 2);
    } else {
        // A group named without its second word, or a word that is no verb.
        std::vector<std::string> inGroup;
        for (const std::string& n : VerbNames()) {
            if (n.rfind(words[0] + " ", 0) == 0) inGroup.push_back(n);
        }
        if (!inGroup.empty()) {
            std::string list;
            for (const std::string& n : inGroup) list += (list.empty() ? "" : ", ") + n;
            if (words.size() < 2) throw UsageError("'" + words[0] + "' wants a second word: " + list);
            std::vector<std::string> close = Closest(words[0] + " " + words[1], inGroup, 2);
            throw UsageError("unknown command '" + words[0] + " " + words[1] + "'" +
                             (close.empty() ? "; the commands are " + list : DidYouMean(close)));
        }
        throw UsageError("unknown command '" + words[0] + "'" + DidYouMean(Closest(words[0], VerbNames())));
    }
    inv.args = std::move(words);
    if (!inv.help) {
        if (inv.args.size() < inv.verb->minArgs) throw UsageError("too few arguments", inv.verb);
        if (inv.args.size() > inv.verb->maxArgs) {
            throw UsageError("too many arguments (from '" + inv.args[inv.verb->maxArgs] + "')", inv.verb);
        }
    }
    return inv;
}

std::optional<GatewayAddress> ParseGatewayUrl(const std::string& url) {
    GatewayAddress a;
    size_t after;
    if (url.rfind("https://", 0) == 0) {
        a.tls = true;
        after = 8;
    } else if (url.rfind("http://", 0) == 0) {
        after = 7;
    } else {
        return std::nullopt;
    }
    size_t slash = url.find('/', after);
    std::string authority = url.substr(after, slash == std::string::npos ? std::string::npos : slash - after);
    std::string path = slash == std::string::npos ? "" : url.substr(slash);
    // No user, query or fragment: a token goes in --token, never in the URL.
    if (authority.empty() || url.find_first_of("@?# \t\r\n") != std::string::npos) return std::nullopt;
    std::string host = authority;
    size_t colon = authority.rfind(':');
    bool bracketed = authority[0] == '[';
    if (bracketed && authority.find(']') == std::string::npos) return std::nullopt;
    if (colon != std::string::npos && (!bracketed || colon > authority.find(']'))) {
        std::optional<int64_t> port = ParseInteger(authority.substr(colon + 1));
        if (!port || *port < 1 || *port > 65535 || authority.substr(colon + 1).find_first_not_of("0123456789") !=
                                                       std::string::npos) {
            return std::nullopt;
        }
        host = authority.substr(0, colon);
    }
    if (host.empty() || host == "[]") return std::nullopt;
    while (!path.empty() && path.back() == '/') path.pop_back();
    const std::string api = "/api/v1";
    if (path.size() >= api.size() && path.compare(path.size() - api.size(), api.size(), api) == 0) {
        path.erase(path.size() - api.size());
    }
    a.origin = url.substr(0, after) + authority;
    a.prefix = path;
    return a;
}

}  // namespace zanth::cli
