// The help texts: the command line's, each verb's, and each export's from the API model.

#include <cstdio>

#include "tools/cli/Text.h"
#include "tools/cli/Verbs.h"

namespace zanth::cli {
namespace {

// Words wrapped to `width` columns, each line indented by `indent`.
std::string Wrap(const std::string& text, size_t width = 78, const std::string& indent = "  ") {
    std::string out, line;
    auto flush = [&]() {
        if (!line.empty()) out += indent + line + "\n";
        line.clear();
    };
    for (const std::string& paragraph : Split(text, '\n')) {
        for (const std::string& word : Split(paragraph, ' ')) {
            if (word.empty()) continue;
            if (!line.empty() && indent.size() + line.size() + 1 + word.size() > width) flush();
            line += (line.empty() ? "" : " ") + word;
        }
        flush();
    }
    return out;
}

// "  left      right", the right side wrapped within 78 columns.
std::string Column(const std::string& left, const std::string& right, size_t at = 32) {
    std::string l = "  " + left;
    std::string out = l.size() + 1 >= at ? l + "\n" + std::string(at, ' ') : l + std::string(at - l.size(), ' ');
    size_t column = at;
    bool first = true;
    for (const std::string& word : Split(right, ' ')) {
        if (!first && column + 1 + word.size() > 78) {
            out += "\n" + std::string(at, ' ');
            column = at;
            first = true;
        }
        out += (first ? "" : " ") + word;
        column += (first ? 0 : 1) + word.size();
        first = false;
    }
    return out + "\n";
}

std::string OptionText(const OptionSpec& o) {
    return std::string(o.name) + (o.value ? std::string(" ") + o.value : "");
}

}  // namespace

std::string GeneralHelp() {
    std::string h =
        "zanth: the command line of libzanth, for the daily work of a site with its door\n"
        "controllers.\n\n"
        "usage: zanth [OPTIONS] COMMAND [ARGS] [COMMAND OPTIONS]\n\nCommands:\n";
    for (const Verb& v : Verbs()) {
        h += Column(std::string(v.name) + (*v.args ? " " + std::string(v.args) : ""), v.summary, 36);
    }
    h += "\nOptions:\n";
    for (const OptionSpec& o : GlobalOptions()) h += Column(OptionText(o), o.help, 26);
    h +=
        "\nReaching controllers:\n"
        "  zanth listens on --port (3001 by default) and waits up to --timeout seconds for\n"
        "  the controllers the command names, and those of --wait, to connect and identify\n"
        "  themselves; only those are taken (the valid list). With --contact HOST:PORT it\n"
        "  calls them instead (ContactController), still listening on a free port of its own.\n"
        "  A controller keeps one link to one host: on a site whose access-control\n"
        "  application (or zanthd) owns the port, zanth can't listen there. Stop that\n"
        "  program for the work, use a port the controllers are set to call, or --contact;\n"
        "  where it is zanthd, work through it with --gateway.\n"
        "\nThrough a gateway:\n"
        "  --gateway URL makes every command work through zanthd's REST API instead of the\n"
        "  library, which isn't loaded: --port, --contact, --valid and --library have no\n"
        "  meaning then. The token comes from --token or ZANTH_TOKEN (so that it needn't be\n"
        "  on a command line); a read-only token does list, info, time, cards get and check,\n"
        "  and watch; the others want the operator scope. An https gateway's certificate is\n"
        "  checked against the system's CAs, or the one of --ca FILE.\n"
        "\nFiles:\n"
        "  The library keeps its log ZanthMessages.log and its message files ZanthEvents.log\n"
        "  and ZanthAlarms.log in zanth's own data folder, and reads the seed file zanth.txt\n"
        "  of encrypted links from there: --data-dir, by default\n"
        "  ${XDG_STATE_HOME:-~/.local/state}/zanth (%LOCALAPPDATA%\\zanth on Windows). zanth\n"
        "  never sets the library's per-user log folder and never touches another program's\n"
        "  files. The cards CSV is described in docs/cards-csv.md (installed as\n"
        "  share/doc/zanth/cards-csv.md).\n"
        "\nOutput:\n"
        "  Text for a person on stdout, or JSON lines with --json: one object per item, then\n"
        "  a summary object; a failure is an object with \"error\"; bytes are written as\n"
        "  hexadecimal digits. Progress bars, notes and errors go to stderr.\n"
        "\nExit status:\n"
        "  0    success\n"
        "  1    the library or a controller answered with a failure (its result's name and\n"
        "       meaning are shown), or a local file couldn't be read or written\n"
        "  2    a bad command line or argument (the command's usage is shown)\n"
        "  3    a controller didn't connect within --timeout (its MAC and the port are named),\n"
        "       or the gateway had no answer from it within its deadline\n"
        "  4    the work ran to its end, but some items failed: bad CSV lines, refused or\n"
        "       differing records (each is reported, and counted in the summary)\n"
        "  5    the library couldn't be loaded or started (not found, port in use), or the\n"
        "       gateway couldn't be reached, wasn't trusted (TLS) or refused the token\n"
        "  130  interrupted with Ctrl-C: stopped cleanly, what was done is reported\n"
        "\nzanth help COMMAND and zanth help EXPORT tell more; zanth help exports lists the\n"
        "library's exports.\n";
    return h;
}

std::string VerbUsage(const Verb& v) {
    std::string u = "usage: zanth " + std::string(v.name) + (*v.args ? " " + std::string(v.args) : "");
    for (const OptionSpec& o : v.options) u += " [" + OptionText(o) + "]";
    return u + "\n";
}

std::string VerbHelp(const Verb& v) {
    std::string h = VerbUsage(v) + "\n" + Wrap(std::string(v.summary) + ".", 78, "");
    if (*v.help) h += "\n" + std::string(v.help) + "\n";
    if (!v.options.empty()) {
        h += "\nOptions:\n";
        for (const OptionSpec& o : v.options) h += Column(OptionText(o), o.help, 18);
    }
    h += "\nzanth --help lists the options every command takes (--port, --wait, --timeout,\n"
         "--contact, --gateway, --json, --data-dir) and the exit statuses.\n";
    return h;
}

std::string ExportUsage(const model::Export& e) {
    std::string u = "usage: zanth call " + e.name;
    std::string optional;
    for (const model::Param& p : e.params) {
        if (!p.input) continue;
        if (p.rspid) {
            optional += " [rspid=1]";
        } else if (p.size) {
            optional += " [" + p.name + "=" + std::to_string(p.defaultSize) + "]";
        } else {
            u += " " + p.name;
        }
    }
    return u + optional + "\n";
}

std::string ExportHelp(const model::Export& e) {
    std::string h = e.name + ": " + e.family + "; " + e.form + " " + e.category + "\n  " + e.decl + "\n\n";
    h += ExportUsage(e);
    std::string in, out;
    for (const model::Param& p : e.params) {
        std::string kind = p.kind == model::Kind::kInteger     ? p.ctype
                           : p.kind == model::Kind::kCharacter ? "one character"
                           : p.kind == model::Kind::kBytes     ? "bytes (@FILE, hex:..., or text)"
                                                               : "text";
        if (p.kind == model::Kind::kInteger) {
            // "int32_t*" of an output is the number it gets.
            if (!kind.empty() && kind.back() == '*') kind.pop_back();
        }
        std::string what = kind + (p.bounds.empty() ? "" : ", " + p.bounds);
        if (p.byMode) what += " (in or out by mode)";
        if (p.size) what = "size of an output, default " + std::to_string(p.defaultSize) +
                           (p.bounds.empty() ? "" : ", " + p.bounds);
        if (p.rspid) what = "the tag of the reply (default 1)";
        if (p.input) in += Column(p.name, what, 30);
        if (p.output && !p.input) out += Column(p.name, what, 30);
        if (p.output && p.input && !p.size) out += Column(p.name, "written back", 30);
    }
    if (!in.empty()) h += "\nArguments:\n" + in;
    if (!out.empty()) h += "\nOutputs:\n" + out;
    if (!e.modes.empty()) {
        std::string modes;
        for (int64_t m : e.modes) modes += (modes.empty() ? "" : ", ") + std::to_string(m);
        h += "\nThe mode (" + modes + ") decides which arguments go in and which come out.\n";
    }
    if (!e.doc.empty()) h += "\n" + Wrap(e.doc, 78, "");
    if (!e.ruleDoc.empty()) h += "\nSuccess (" + e.rule + "): " + e.ruleDoc + "\n";
    if (!e.twin.empty()) {
        h += e.rsp ? "\nIts blocking form is " + e.twin + ". zanth waits for the reply and shows it decoded.\n"
                   : "\nIts Rsp form is " + e.twin + ".\n";
    }
    if (!e.why.empty()) h += "\n" + Wrap(e.why, 78, "");
    if (!e.callable) h += "\nA callback registration: zanth watch shows what the callbacks would deliver.\n";
    if (e.movesOwnFiles) {
        h += "\nzanth doesn't call it: the library's files stay in zanth's data folder (--data-dir).\n";
    }
    if (!e.familyNotes.empty()) h += "\n" + e.family + ":\n" + Wrap(e.familyNotes);
    return h;
}

}  // namespace zanth::cli
