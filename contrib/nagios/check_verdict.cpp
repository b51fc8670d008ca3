// SPDX-License-Identifier: Apache-2.0
// The check plugin's judgement (check_verdict.h): no network, no Net-SNMP.
#include "contrib/nagios/check_verdict.h"

#include <fnmatch.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace check {

namespace {

// The whole text a finite number, or nullopt.
std::optional<double> number(const std::string &text) {
    if (text.empty())
        return std::nullopt;
    char *end = nullptr;
    double v = std::strtod(text.c_str(), &end);
    if (*end != '\0' || !std::isfinite(v))
        return std::nullopt;
    return v;
}

std::string fixed(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.1f", v);
    return buf;
}

// Of OK, WARNING and CRITICAL, the verdicts on single figures.
State worse(State a, State b) {
    return std::max(a, b);
}

std::string perf_pct(const std::string &label, double v, const Thresholds &t) {
    return perf_label(label) + "=" + fixed(v) + "%;" + (t.warn ? t.warn->text : "") + ";" +
           (t.crit ? t.crit->text : "") + ";0;100";
}

const char *lower_name(State s) {
    static const char *names[] = {"ok", "warning", "critical", "unknown"};
    return names[s];
}

void append(std::string &list, const std::string &item, const char *sep = ", ") {
    if (!list.empty())
        list += sep;
    list += item;
}

} // namespace

const char *state_name(State s) {
    static const char *names[] = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
    return names[s];
}

bool Range::alert(double value) const {
    bool within = (low_infinite || value >= low) && (high_infinite || value <= high);
    return inside ? within : !within;
}

std::optional<Range> Range::parse(const std::string &text, std::string *error) {
    Range r;
    r.text = text;
    std::string rest = text;
    if (!rest.empty() && rest[0] == '@') {
        r.inside = true;
        rest.erase(0, 1);
    }
    std::string low, high = rest;
    auto colon = rest.find(':');
    if (colon != std::string::npos) {
        low = rest.substr(0, colon);
        high = rest.substr(colon + 1);
    }
    bool ok = true;
    if (low == "~") {
        r.low_infinite = true;
    } else if (!low.empty()) {
        auto v = number(low);
        ok = ok && v;
        r.low = v.value_or(0);
    }
    if (high.empty() && colon != std::string::npos) {
        r.high_infinite = true;
    } else {
        auto v = number(high);
        ok = ok && v;
        r.high = v.value_or(0);
    }
    if (ok && !r.low_infinite && !r.high_infinite && r.low > r.high) {
        *error = "range '" + text + "' starts above its end";
        return std::nullopt;
    }
    if (!ok) {
        *error = "'" + text + "' is not a range (10, 10:, ~:10, 10:20 or @10:20)";
        return std::nullopt;
    }
    return r;
}

State Thresholds::judge(double value) const {
    if (crit && crit->alert(value))
        return CRITICAL;
    if (warn && warn->alert(value))
        return WARNING;
    return OK;
}

std::string Result::line(const std::string &mode) const {
    std::string head = "TEMHOSTD";
    if (!mode.empty())
        head += ' ';
    for (char c : mode)
        head += static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    // The text part may hold names from the host: no line breaks, no "|".
    std::string clean = text;
    for (char &c : clean)
        if (c == '|')
            c = '/';
        else if (static_cast<unsigned char>(c) < 0x20)
            c = '?';
    head += std::string(" ") + state_name(state) + " - " + clean;
    return perf.empty() ? head : head + " | " + perf;
}

std::string mount_point(const std::string &desc) {
    auto on = desc.find(" On ");
    return on == std::string::npos ? desc : desc.substr(on + 4);
}

bool matches_any(const std::vector<std::string> &globs, const std::string &name) {
    if (globs.empty())
        return true;
    return std::any_of(globs.begin(), globs.end(), [&](const std::string &g) {
        return fnmatch(g.c_str(), name.c_str(), 0) == 0;
    });
}

std::string perf_label(const std::string &name) {
    std::string out = "'";
    for (char c : name) {
        out += c;
        if (c == '\'')
            out += '\'';
    }
    return out + "'";
}

static std::string globs_text(const std::vector<std::string> &globs) {
    std::string out;
    for (const auto &g : globs)
        append(out, g, " or ");
    return out;
}

Result judge_fs(const std::vector<FsRow> &rows, const std::vector<std::string> &globs,
                const Thresholds &t) {
    struct Seen {
        std::string mount;
        double pct;
        State state;
    };
    std::vector<Seen> seen;
    Result r;
    for (const auto &row : rows) {
        std::string mp = mount_point(row.desc);
        if (!matches_any(globs, mp))
            continue;
        // From the sizes, as "df" does; under a megabyte only the table's
        // own figure (whole per cent plus one) is there.
        double pct =
            row.total_mb > 0 ? 100.0 * row.used_mb / row.total_mb : std::max(0L, row.percent - 1);
        seen.push_back({mp, pct, t.judge(pct)});
        append(r.perf, perf_pct(mp, pct, t), " ");
    }
    if (seen.empty()) {
        r.text = globs.empty() ? "no file system in the table"
                               : "no file system mounted on " + globs_text(globs);
        return r;
    }
    r.state = OK;
    for (const auto &s : seen)
        r.state = worse(r.state, s.state);
    auto n = std::to_string(seen.size()) + (seen.size() == 1 ? " file system" : " file systems");
    if (r.state == OK) {
        auto fullest = std::max_element(seen.begin(), seen.end(),
                                        [](const Seen &a, const Seen &b) { return a.pct < b.pct; });
        r.text = n + ", fullest " + fullest->mount + " " + fixed(fullest->pct) + "% used";
        return r;
    }
    std::stable_sort(seen.begin(), seen.end(),
                     [](const Seen &a, const Seen &b) { return a.state > b.state; });
    for (const auto &s : seen)
        if (s.state != OK)
            append(r.text, s.mount + " " + fixed(s.pct) + "% used (" + lower_name(s.state) + ")");
    r.text += " of " + n;
    return r;
}

Result judge_cpu(const std::vector<CpuRow> &rows, const Thresholds &t) {
    Result r;
    const CpuRow *busiest = nullptr;
    for (const auto &row : rows) {
        if (row.avg5 < 0)
            continue;
        if (!busiest || row.avg5 > busiest->avg5)
            busiest = &row;
        append(r.perf, perf_pct("cpu" + std::to_string(row.index), row.avg5, t), " ");
    }
    if (!busiest) {
        r.text = rows.empty() ? "no processor in the table"
                              : "no 5-minute average yet (the agent has run under 5 minutes)";
        return r;
    }
    r.state = t.judge(busiest->avg5);
    r.text = "busiest processor cpu" + std::to_string(busiest->index) + " " +
             std::to_string(busiest->avg5) + "% busy over 5 minutes, of " +
             std::to_string(rows.size()) + (rows.size() == 1 ? " processor" : " processors");
    return r;
}

Result judge_software(const std::vector<SwRow> &rows, const std::vector<std::string> &globs) {
    Result r;
    std::string stopped;
    int running = 0, not_running = 0, listed = 0;
    for (const auto &row : rows) {
        if (!matches_any(globs, row.name))
            continue;
        ++listed;
        if (row.status == 2)
            ++running;
        if (row.status == 3) {
            ++not_running;
            append(stopped, row.name);
        }
    }
    r.perf = "'running'=" + std::to_string(running) +
             ";;;0 'not_running'=" + std::to_string(not_running) + ";;;0";
    if (listed == 0) {
        // The agent lists itself at least: an empty table means its listing failed.
        r.text = globs.empty() ? "no package in the table"
                               : "no package named " + globs_text(globs) + " in the table";
        return r;
    }
    r.state = not_running ? CRITICAL : OK;
    r.text = not_running
                 ? "not running: " + stopped + " (" + std::to_string(running) + " of " +
                       std::to_string(running + not_running) + " watched running)"
                 : std::to_string(running) +
                       (running == 1 ? " watched package" : " watched packages") + " running";
    return r;
}

Result judge_status(const std::string &array) {
    Result r;
    if (array.size() < 2) {
        r.text = "the status array holds " + std::to_string(array.size()) + " octets";
        return r;
    }
    static const char *names[] = {"", "other", "ok", "degraded", "failed"};
    auto name = [](unsigned c) {
        return c >= 1 && c <= 4 ? std::string(names[c]) : "condition " + std::to_string(c);
    };
    unsigned overall = static_cast<unsigned char>(array[1]);
    // Entry m (octets 4m..4m+3): answered, condition, major, minor revision.
    std::string bad;
    for (size_t m = 1; 4 * m + 1 < array.size(); ++m) {
        unsigned answered = static_cast<unsigned char>(array[4 * m]);
        unsigned c = static_cast<unsigned char>(array[4 * m + 1]);
        if (answered == 1 && c >= 3)
            append(bad, "MIB " + std::to_string(m) + " " + name(c));
    }
    r.state = overall == 2 ? OK : overall == 3 ? WARNING : overall == 4 ? CRITICAL : UNKNOWN;
    r.text = "overall condition " + name(overall);
    if (overall == 1)
        r.text += " (no agent's condition could be read)";
    if (!bad.empty())
        r.text += ": " + bad;
    r.perf = "'condition'=" + std::to_string(overall) + ";;;1;4";
    return r;
}

Result judge_memory(long phys_size, long phys_free, long page_size, long page_free,
                    const Thresholds &t) {
    Result r;
    if (phys_size <= 0) {
        r.text = "physical memory size " + std::to_string(phys_size) + " MB";
        return r;
    }
    auto used = [](long size, long free) { return 100.0 * (size - free) / size; };
    double phys = used(phys_size, phys_free);
    r.state = t.judge(phys);
    r.text = "physical memory " + fixed(phys) + "% used of " + std::to_string(phys_size) + " MB";
    r.perf = perf_pct("physical", phys, t);
    if (page_size > 0) {
        double page = used(page_size, page_free);
        r.state = worse(r.state, t.judge(page));
        r.text += ", paging " + fixed(page) + "% used of " + std::to_string(page_size) + " MB";
        append(r.perf, perf_pct("paging", page, t), " ");
    }
    return r;
}

} // namespace check
