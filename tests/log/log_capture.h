// Helpers shared by the logging tests: capture of a descriptor and a recording callback.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

// Points descriptor fd at a temporary file until restore() or destruction.
class FdCapture {
  public:
    explicit FdCapture(int fd = 1) : fd_(fd), file_(tmpfile()) {
        fflush(stdout);
        saved_ = dup(fd_);
        dup2(fileno(file_), fd_);
    }
    ~FdCapture() {
        restore();
        fclose(file_);
    }
    void restore() {
        if (saved_ < 0) return;
        dup2(saved_, fd_);
        close(saved_);
        saved_ = -1;
    }
    std::string text() const {
        std::string all;
        char chunk[4096];
        ssize_t n;
        while ((n = pread(fileno(file_), chunk, sizeof chunk, all.size())) > 0)
            all.append(chunk, n);
        return all;
    }

  private:
    int fd_;
    FILE* file_;
    int saved_;
};

struct LogCall {
    int module, level, flag, len;
    std::string line;
};
inline std::vector<LogCall> g_log_calls;
inline int record_log_call(int module, int level, int flag, const char* line, int len) {
    g_log_calls.push_back({module, level, flag, len, line});
    return 0;
}
