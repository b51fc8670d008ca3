// A command's output stream that is always pclosed, on every path.
#pragma once

#include <cstdio>

namespace platform {

class PopenStream {
  public:
    explicit PopenStream(const char *command) : fp_(popen(command, "r")) {}
    ~PopenStream() { close(); }
    PopenStream(const PopenStream &) = delete;
    PopenStream &operator=(const PopenStream &) = delete;

    bool ok() const { return fp_ != nullptr; }
    FILE *get() const { return fp_; }
    // Reads one line (fgets semantics); false at end of output or without a stream.
    bool read_line(char *buf, int size) { return fp_ && fgets(buf, size, fp_) != nullptr; }
    // Closes now and returns pclose's status (-1 when nothing was open).
    int close() {
        int rc = -1;
        if (fp_) {
            rc = pclose(fp_);
            fp_ = nullptr;
        }
        return rc;
    }

  private:
    FILE *fp_;
};

} // namespace platform
