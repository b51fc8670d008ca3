// SPDX-License-Identifier: Apache-2.0
#include "interface/sw_checks.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string_view>

#include "interface/swver_codes.h"
#include "platform/commands.h"
#include "platform/guard.h"
#include "platform/popen_stream.h"

namespace {

// A started command: reading it gives its lines, false when it did not run.
using Reader = std::function<bool(std::vector<std::string> *)>;

// Reads a started command's whole output, one string per line, and closes
// it. False when it did not run, or did not finish by its deadline.
bool read_output(platform::PopenStream &out, std::vector<std::string> *lines) {
    platform::CommandOutput text;
    if (!out.read_all(text)) {
        return false;
    }
    *lines = text.lines();
    out.close();
    return true;
}

Reader start_program(const char *command) {
    auto out = std::make_shared<platform::PopenStream>(command);
    return [out](std::vector<std::string> *lines) { return read_output(*out, lines); };
}

swver_command_fn s_runner = nullptr;

// A test's runner answers at once: its answer is kept until read.
Reader start_through_runner(const char *command) {
    auto lines = std::make_shared<std::vector<std::string>>();
    const bool ran = s_runner(command, lines.get());
    return [lines, ran](std::vector<std::string> *out) {
        *out = std::move(*lines);
        return ran;
    };
}

Reader (*s_start)(const char *) = start_program;

// One command's answer: whether it ran, and its lines; or, started ahead,
// the reader that gives them.
struct ListOutput {
    bool taken = false;
    bool ran = false;
    std::vector<std::string> lines;
    Reader ahead;
};

// The outputs taken during the current refresh, by command. Outside a
// refresh nothing is kept and every check runs its command.
bool s_memo_on = false;
std::map<std::string, ListOutput> s_outputs;

// The name listing: each line the command name padded to this width, a
// blank, then the executable's path ("-" for none; " (deleted)" after it
// when the file has been replaced since the process started).
#define NAME_WIDTH 64
#define NAME_WIDTH_TEXT "64"

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && text.back() == ' ') {
        text.remove_suffix(1);
    }
    return text;
}

bool names_process(std::string_view line, std::string_view name) {
    if (trimmed(line.substr(0, NAME_WIDTH)) == name) {
        return true;
    }
    if (line.size() <= NAME_WIDTH + 1) {
        return false;
    }
    std::string_view path = trimmed(line.substr(NAME_WIDTH + 1));
    const std::string_view deleted = " (deleted)";
    if (path.size() > deleted.size() && path.substr(path.size() - deleted.size()) == deleted) {
        path.remove_suffix(deleted.size());
    }
    const size_t slash = path.rfind('/');
    return slash != std::string_view::npos && path.substr(slash + 1) == name;
}

// The kernel keeps a process's command name to this many characters.
constexpr size_t COMM_MAX = 15;

// The file name of a path: what follows its last '/'.
std::string_view file_name(std::string_view path) {
    const size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// A line of the argument listing (the command name padded to NAME_WIDTH,
// a blank, the arguments) of a script named name started through its "#!"
// line: the kernel names such a process after the script, cut to
// COMM_MAX, and gives it the arguments: the interpreter, at most one
// argument of the "#!" line, then the script's path. "exec -a" changes
// only the first of them and leaves the command name that of the program
// it runs.
bool runs_script(std::string_view line, std::string_view name) {
    if (trimmed(line.substr(0, NAME_WIDTH)) != name.substr(0, COMM_MAX) ||
        line.size() <= NAME_WIDTH + 1) {
        return false;
    }
    std::string_view args = line.substr(NAME_WIDTH + 1);
    for (int word = 0; word < 3 && !args.empty(); ++word) {
        const size_t end = std::min(args.find(' '), args.size());
        if (word > 0 && file_name(args.substr(0, end)) == name) {
            return true;
        }
        args.remove_prefix(std::min(end + 1, args.size()));
    }
    return false;
}

int unit_state(const ListOutput &out, const char *unit);

int look_in(const ListOutput &out, int check, const char *exe) {
    if (check == CHECK_UNIT) {
        return unit_state(out, exe);
    }
    if (!out.ran) {
        return SWVER_STATUS_UNKNOWN;
    }
    if (check == CHECK_PROCESS_NAME) {
        for (const std::string &line : out.lines) {
            if (*exe && names_process(line, exe)) {
                return SWVER_STATUS_RUNNING;
            }
        }
        return SWVER_STATUS_STOPPED;
    }
    for (const std::string &line : out.lines) {
        if (strstr(line.c_str(), exe) &&
            (check != CHECK_PROCESS || !strstr(line.c_str(), "grep"))) {
            return SWVER_STATUS_RUNNING;
        }
    }
    return SWVER_STATUS_STOPPED;
}

// The argument listing, asked for a name longer than a command name holds.
std::string script_list_command() {
    return std::string(platform::ps_path()) + " -e -o comm:" NAME_WIDTH_TEXT "=,args=";
}

// The watched units, in the order systemctl is asked about them.
std::vector<std::string> s_units;

// "systemctl show" prints one block of properties per unit asked for, in
// that order, separated by blank lines; an alias is answered under the
// unit's own Id, so the position, not the name, says which unit it is.
int unit_state(const ListOutput &out, const char *unit) {
    const auto at = std::find(s_units.begin(), s_units.end(), unit);
    if (!out.ran || at == s_units.end()) {
        return SWVER_STATUS_UNKNOWN;
    }
    const size_t wanted = static_cast<size_t>(at - s_units.begin());
    std::vector<std::pair<std::string, std::string>> blocks; // load, active
    bool in_block = false;
    for (const std::string &line : out.lines) {
        if (line.empty()) {
            in_block = false;
            continue;
        }
        if (!in_block) {
            blocks.emplace_back();
            in_block = true;
        }
        if (line.compare(0, 10, "LoadState=") == 0) {
            blocks.back().first = line.substr(10);
        } else if (line.compare(0, 12, "ActiveState=") == 0) {
            blocks.back().second = line.substr(12);
        }
    }
    // Anything but one block per unit (an error part way, a systemctl that
    // prints something else) leaves every unit unknown.
    if (blocks.size() != s_units.size()) {
        return SWVER_STATUS_UNKNOWN;
    }
    const auto &[load, active] = blocks[wanted];
    if (load.empty() || load == "not-found" || active.empty()) {
        return SWVER_STATUS_UNKNOWN;
    }
    return active == "active" || active == "reloading" ? SWVER_STATUS_RUNNING
                                                       : SWVER_STATUS_STOPPED;
}

std::string list_command(int check) {
    switch (check) {
    case CHECK_UNIT: {
        // Unit names hold no quote (the watch list checks them): each is
        // one single-quoted word, its backslash escapes (\x2d) kept.
        std::string command =
            std::string(platform::systemctl_path()) + " show --property=LoadState,ActiveState --";
        for (const std::string &unit : s_units) {
            command += " '" + unit + "'";
        }
        return command;
    }
    case CHECK_MODULE:
        return std::string(platform::modinfo_path()) + " -w";
    case CHECK_PROCESS_NAME:
        return std::string(platform::ps_path()) + " -e -o comm:" NAME_WIDTH_TEXT "=,exe=";
    default:
        return std::string(platform::ps_path()) + " -aef";
    }
}

} // namespace

void add_watched_unit(const std::string &unit) {
    if (std::find(s_units.begin(), s_units.end(), unit) == s_units.end()) {
        s_units.push_back(unit);
    }
}

void clear_watched_units(void) {
    s_units.clear();
}

void set_swver_command_runner(swver_command_fn run) {
    s_runner = run;
    s_start = run ? start_through_runner : start_program;
}

SwCheckRefresh::SwCheckRefresh() {
    s_outputs.clear();
    s_memo_on = true;
}

SwCheckRefresh::~SwCheckRefresh() {
    s_memo_on = false;
    s_outputs.clear();
}

void SwCheckRefresh::start_ahead(int check) {
    platform::c_call(0, [&] {
        std::string command = list_command(check);
        if (s_outputs.count(command) == 0) {
            ListOutput out;
            out.ahead = s_start(command.c_str());
            s_outputs.emplace(std::move(command), std::move(out));
        }
        return 0;
    });
}

namespace {

// A command's output, from the refresh's memo or taken now into once.
ListOutput &output_of(const std::string &command, ListOutput &once) {
    ListOutput &out = s_memo_on ? s_outputs[command] : once;
    if (!out.taken) {
        out.ran = (out.ahead ? out.ahead : s_start(command.c_str()))(&out.lines);
        out.ahead = nullptr;
        out.taken = true;
    }
    return out;
}

// A name longer than a command name, not found by the listing of names: a
// script daemon, when a process bears its name cut short.
int look_for_script(const ListOutput &names, std::string_view name) {
    const std::string_view cut = name.substr(0, COMM_MAX);
    const bool cut_name_runs = std::any_of(names.lines.begin(), names.lines.end(), [&](auto &l) {
        return trimmed(std::string_view(l).substr(0, NAME_WIDTH)) == cut;
    });
    if (!cut_name_runs) {
        return SWVER_STATUS_STOPPED;
    }
    // (The command is named: gcc 14 warns of a reference returned by a
    // call given a temporary, as if it could point into that temporary.)
    ListOutput once;
    const std::string command = script_list_command();
    const ListOutput &args = output_of(command, once);
    if (!args.ran) {
        return SWVER_STATUS_UNKNOWN;
    }
    const bool runs = std::any_of(args.lines.begin(), args.lines.end(),
                                  [&](auto &l) { return runs_script(l, name); });
    return runs ? SWVER_STATUS_RUNNING : SWVER_STATUS_STOPPED;
}

} // namespace

// The checks run inside the library's callbacks: memory running out while
// a list is held reads as "cannot tell".
int sw_check(int check, const char *exe) {
    return platform::c_call(SWVER_STATUS_UNKNOWN, [&] {
        ListOutput once;
        const std::string command = list_command(check);
        const ListOutput &out = output_of(command, once);
        const int status = look_in(out, check, exe);
        if (check == CHECK_PROCESS_NAME && status == SWVER_STATUS_STOPPED &&
            strlen(exe) > COMM_MAX) {
            return look_for_script(out, exe);
        }
        return status;
    });
}
