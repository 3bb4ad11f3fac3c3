// File utilities: real POSIX file operations below the stand-in's file root.
#include "host/osal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "state.h"

using standin::Call;
using standin::ResolvePath;

namespace {

// Closes a descriptor when the scope ends.
struct Fd {
    int fd;
    explicit Fd(int f) : fd(f) {}
    ~Fd() {
        if (fd >= 0) close(fd);
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
};

bool WriteAll(int fd, const char* data, ssize_t len) {
    while (len > 0) {
        ssize_t n = write(fd, data, static_cast<size_t>(len));
        if (n <= 0) return false;
        data += n;
        len -= n;
    }
    return true;
}

}  // namespace

int osal_is_file_exist(const char* path) {
    if (path == nullptr) return 0;
    return access(ResolvePath(path).c_str(), F_OK) == 0 ? 1 : 0;
}

int osal_copy(const char* source, const char* destination) {
    if (int code = standin::failure(Call::kOsalCopy)) return code;
    if (source == nullptr || destination == nullptr) return -1;
    Fd in(open(ResolvePath(source).c_str(), O_RDONLY | O_CLOEXEC));
    if (in.fd < 0) return -2;
    Fd out(open(ResolvePath(destination).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (out.fd < 0) return -3;
    char buffer[4096];
    for (;;) {
        ssize_t n = read(in.fd, buffer, sizeof buffer);
        if (n < 0) return -4;
        if (n == 0) return 0;
        if (!WriteAll(out.fd, buffer, n)) return -5;
    }
}

long osal_get_file_size(const char* path) {
    if (int code = standin::failure(Call::kOsalGetFileSize)) return code;
    struct stat st;
    if (path == nullptr || stat(ResolvePath(path).c_str(), &st) != 0) return -1;
    return static_cast<long>(st.st_size);
}

void* osal_malloc(size_t size, int) {
    if (standin::failure(Call::kOsalMalloc) != 0) return nullptr;
    return std::malloc(size == 0 ? 1 : size);
}

void osal_free(void* buffer) {
    std::free(buffer);
}

long osal_load_file(const char* path, long offset, void* buffer, long size) {
    if (int code = standin::failure(Call::kOsalLoadFile)) return code;
    if (path == nullptr || buffer == nullptr || size < 0 || offset < 0) return -1;
    Fd in(open(ResolvePath(path).c_str(), O_RDONLY | O_CLOEXEC));
    if (in.fd < 0) return -2;
    long done = 0;
    while (done < size) {
        ssize_t n = pread(in.fd, static_cast<char*>(buffer) + done,
                          static_cast<size_t>(size - done), offset + done);
        if (n < 0) return -3;
        if (n == 0) break;
        done += n;
    }
    return done;
}
