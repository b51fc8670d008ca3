// SPDX-License-Identifier: Apache-2.0
#include "platform/host_files.h"

#include "platform/host_paths.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <new>
#include <unistd.h>

namespace platform {

namespace {

// Steps through text one line at a time (without its newline); false at
// the end of the text.
bool next_line(std::string_view text, size_t &pos, std::string_view &line) {
    if (pos >= text.size()) {
        return false;
    }
    size_t end = text.find('\n', pos);
    if (end == std::string_view::npos) {
        end = text.size();
    }
    line = text.substr(pos, end - pos);
    pos = end + 1;
    return true;
}

bool read_limited(const char *path, std::string &out, size_t limit, bool &truncated) {
    out.clear();
    truncated = false;
    std::string full = host_path(path);
    int fd = open(full.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    // /proc and /sys files report size 0, so read until end of file.
    char chunk[8192];
    for (;;) {
        ssize_t n = read(fd, chunk, sizeof(chunk));
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            int saved = errno;
            close(fd);
            errno = saved;
            return false;
        }
        if (n == 0) {
            break;
        }
        size_t room = limit - out.size();
        if (static_cast<size_t>(n) > room) {
            out.append(chunk, room);
            truncated = true;
            break;
        }
        out.append(chunk, static_cast<size_t>(n));
    }
    close(fd);
    return true;
}

ssize_t read_retrying(void *cookie, char *buf, size_t size) {
    ssize_t n;
    do {
        n = read(*static_cast<int *>(cookie), buf, size);
    } while (n < 0 && errno == EINTR);
    return n;
}

int close_cookie(void *cookie) {
    const int rc = close(*static_cast<int *>(cookie));
    delete static_cast<int *>(cookie);
    return rc;
}

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

} // namespace

bool read_host_text(const char *path, std::string &out, size_t limit) {
    bool truncated;
    if (!read_limited(path, out, limit, truncated)) {
        return false;
    }
    if (truncated) {
        size_t nl = out.rfind('\n');
        out.resize(nl == std::string::npos ? 0 : nl + 1);
    }
    return true;
}

bool read_host_bytes(const char *path, std::string &out, size_t limit) {
    bool truncated;
    return read_limited(path, out, limit, truncated);
}

FILE *open_for_reading(const char *path) {
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return nullptr;
    }
    int *cookie = new (std::nothrow) int(fd);
    FILE *fp = cookie ? fopencookie(cookie, "r", {read_retrying, nullptr, nullptr, close_cookie})
                      : nullptr;
    if (!fp) {
        delete cookie;
        close(fd);
        errno = ENOMEM;
    }
    return fp;
}

std::vector<std::string_view> split_fields(std::string_view line) {
    std::vector<std::string_view> fields;
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && is_blank(line[i])) {
            ++i;
        }
        size_t start = i;
        while (i < line.size() && !is_blank(line[i])) {
            ++i;
        }
        if (i > start) {
            fields.push_back(line.substr(start, i - start));
        }
    }
    return fields;
}

bool parse_u64(std::string_view token, uint64_t &value, int base) {
    if (token.empty() || token.size() > 64) {
        return false;
    }
    uint64_t v = 0;
    for (char c : token) {
        unsigned digit;
        if (c >= '0' && c <= '9') {
            digit = static_cast<unsigned>(c - '0');
        } else if (c >= 'a' && c <= 'f') {
            digit = static_cast<unsigned>(c - 'a' + 10);
        } else if (c >= 'A' && c <= 'F') {
            digit = static_cast<unsigned>(c - 'A' + 10);
        } else {
            return false;
        }
        if (digit >= static_cast<unsigned>(base)) {
            return false;
        }
        if (v > (UINT64_MAX - digit) / static_cast<uint64_t>(base)) {
            return false;
        }
        v = v * static_cast<uint64_t>(base) + digit;
    }
    value = v;
    return true;
}

bool meminfo_kb(const std::string &meminfo, std::string_view key, uint64_t &kb) {
    std::string_view text(meminfo);
    size_t pos = 0;
    std::string_view line;
    while (next_line(text, pos, line)) {
        // "MemAvailable:   24428632 kB"
        if (line.size() <= key.size() || line.compare(0, key.size(), key) != 0 ||
            line[key.size()] != ':') {
            continue;
        }
        std::vector<std::string_view> f = split_fields(line.substr(key.size() + 1));
        if (f.empty() || (f.size() > 1 && f[1] != "kB")) {
            return false;
        }
        return parse_u64(f[0], kb);
    }
    return false;
}

bool parse_cpu_list(std::string_view text, std::vector<int> &cpus) {
    cpus.clear();
    std::vector<std::string_view> f = split_fields(text);
    if (f.size() != 1) {
        return false;
    }
    std::string_view list = f[0];
    size_t pos = 0;
    while (pos <= list.size()) {
        size_t comma = list.find(',', pos);
        if (comma == std::string_view::npos) {
            comma = list.size();
        }
        std::string_view range = list.substr(pos, comma - pos);
        size_t dash = range.find('-');
        uint64_t lo, hi;
        if (dash == std::string_view::npos) {
            if (!parse_u64(range, lo)) {
                return false;
            }
            hi = lo;
        } else if (!parse_u64(range.substr(0, dash), lo) ||
                   !parse_u64(range.substr(dash + 1), hi)) {
            return false;
        }
        // Linux caps processor numbers far below this; refuse absurd lists.
        if (lo > hi || hi >= 65536) {
            return false;
        }
        for (uint64_t c = lo; c <= hi; ++c) {
            cpus.push_back(static_cast<int>(c));
        }
        pos = comma + 1;
    }
    std::sort(cpus.begin(), cpus.end());
    cpus.erase(std::unique(cpus.begin(), cpus.end()), cpus.end());
    return !cpus.empty();
}

std::vector<CpuTicks> parse_stat_cpus(const std::string &stat) {
    std::vector<CpuTicks> cpus;
    std::string_view text(stat);
    size_t pos = 0;
    std::string_view line;
    while (next_line(text, pos, line)) {
        std::vector<std::string_view> f = split_fields(line);
        // "cpu" alone is the all-processor total; "cpuN" a processor.
        if (f.empty() || f[0].size() <= 3 || f[0].compare(0, 3, "cpu") != 0) {
            continue;
        }
        uint64_t id;
        if (!parse_u64(f[0].substr(3), id) || id >= 65536) {
            continue;
        }
        // user nice system idle are always there; the rest came with later
        // kernels and count as 0 when absent.
        uint64_t v[8] = {0, 0, 0, 0, 0, 0, 0, 0};
        if (f.size() < 5) {
            continue;
        }
        bool ok = true;
        for (size_t i = 0; i < 8 && i + 1 < f.size() && ok; ++i) {
            ok = parse_u64(f[i + 1], v[i]);
        }
        if (!ok) {
            continue;
        }
        CpuTicks t;
        t.cpu = static_cast<int>(id);
        t.user = v[0];
        t.nice = v[1];
        t.system = v[2];
        t.idle = v[3];
        t.iowait = v[4];
        t.irq = v[5];
        t.softirq = v[6];
        t.steal = v[7];
        cpus.push_back(t);
    }
    return cpus;
}

bool parse_stat_btime(const std::string &stat, time_t &btime) {
    std::string_view text(stat);
    size_t pos = 0;
    std::string_view line;
    while (next_line(text, pos, line)) {
        std::vector<std::string_view> f = split_fields(line);
        uint64_t v;
        if (f.size() == 2 && f[0] == "btime" && parse_u64(f[1], v) &&
            v <= static_cast<uint64_t>(INT64_MAX)) {
            btime = static_cast<time_t>(v);
            return true;
        }
    }
    return false;
}

time_t host_boot_time() {
    std::string stat;
    time_t btime;
    if (read_host_text("/proc/stat", stat) && parse_stat_btime(stat, btime)) {
        return btime;
    }
    return time(nullptr);
}

} // namespace platform
