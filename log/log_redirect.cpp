// Redirection of the standard streams to a file or a terminal device.
//
// Concurrency: no lock; these change process-wide descriptors and are meant to be called
// while nothing else logs. A failed redirection puts descriptors 0, 1 and 2 back as they were
// and closes whatever it opened, so repeated attempts leak nothing.
#include <fcntl.h>
#include <stdio_ext.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>

#include "log/log.h"
#include "log_internal.h"

namespace formatv2::logging {
namespace {

// -1 means none. Statically -1 rather than 0: before log_prt_init a redirection must work and
// a close must not mistake descriptor 0 for a saved copy.
int g_saved_stdin = -1;
int g_saved_stdout = -1;
int g_saved_stderr = -1;
int g_dev_fd = -1;  // the terminal device while log_redirection_dev is active
int g_out_fd = -1;  // what the standard streams point to while redirected

bool redirected() {
    return g_out_fd >= 0 || g_dev_fd >= 0;
}

// Saved copies are close-on-exec so a child process never inherits the original streams.
int save(int fd) {
    return fcntl(fd, F_DUPFD_CLOEXEC, 0);
}

void restore(int target, int saved) {
    dup2(saved, target);
    close(saved);
}

// stdout and stderr as a redirection leaves them. setvbuf is valid only on a stream that has
// seen no I/O yet (no buffer set up): such a stream is made unbuffered, so that stdio and
// direct writes to the descriptors keep their order. A stream already used keeps its
// buffering; what it holds belongs to the old destination and is flushed before the switch,
// and whatever it takes from then on is flushed into the new one at the latest by
// log_redirection_close.
struct Streams {
    bool out_fresh;
    bool err_fresh;
};

Streams flush_streams() {
    const Streams streams{__fbufsize(stdout) == 0, __fbufsize(stderr) == 0};
    if (!streams.out_fresh) fflush(stdout);
    if (!streams.err_fresh) fflush(stderr);
    return streams;
}

void unbuffer_fresh(Streams streams) {
    if (streams.out_fresh) setvbuf(stdout, nullptr, _IONBF, 0);
    if (streams.err_fresh) setvbuf(stderr, nullptr, _IONBF, 0);
}

}  // namespace

void reset_redirect_state() {
    g_saved_stdin = g_saved_stdout = g_saved_stderr = g_dev_fd = g_out_fd = -1;
}

}  // namespace formatv2::logging

using namespace formatv2::logging;

extern "C" {

int log_redirection_output(const char* path) {
    if (path == nullptr) return -1;
    if (redirected()) return -2;
    const int file = open(path, O_WRONLY | O_APPEND | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) return -3;
    const Streams streams = flush_streams();

    const int saved_out = save(1);
    if (saved_out < 0) {
        close(file);
        return -4;
    }
    if (dup2(file, 1) < 0) {
        restore(1, saved_out);
        close(file);
        return -5;
    }
    const int saved_err = save(2);
    if (saved_err < 0) {
        restore(1, saved_out);
        close(file);
        return -6;
    }
    if (dup2(file, 2) < 0) {
        restore(1, saved_out);
        close(file);
        restore(2, saved_err);
        return -7;
    }

    unbuffer_fresh(streams);
    g_saved_stdout = saved_out;
    g_saved_stderr = saved_err;
    g_out_fd = file;
    reset_loss_count();
    return 0;
}

int log_redirection_dev(const char* path) {
    if (path == nullptr) return -1;
    if (redirected()) return -2;
    const int dev = open(path, O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (dev < 0) return -3;

    // Line input with CR read as NL and Ctrl-C live, as an operator's console expects. Not
    // being a terminal is no reason to refuse: the device still takes the output.
    struct termios settings;
    if (tcgetattr(dev, &settings) == 0) {
        settings.c_iflag |= ICRNL;
        settings.c_lflag |= ISIG | ICANON;
        tcflush(dev, TCIFLUSH);
        if (tcsetattr(dev, TCSANOW, &settings) != 0) puts("tcsetattr error.\r");
    } else {
        puts("tcgetattr error.\r");
    }
    const Streams streams = flush_streams();

    const int saved_in = save(0);
    if (saved_in < 0) {
        close(dev);
        return -4;
    }
    const int saved_out = save(1);
    if (saved_out < 0) {
        close(saved_in);
        close(dev);
        return -5;
    }
    auto undo_in_out = [&] {
        restore(0, saved_in);
        restore(1, saved_out);
        close(dev);
    };
    if (dup2(dev, 0) < 0) {
        undo_in_out();
        return -6;
    }
    if (dup2(dev, 1) < 0) {
        undo_in_out();
        return -7;
    }
    const int saved_err = save(2);
    if (saved_err < 0) {
        undo_in_out();
        return -8;
    }
    if (dup2(dev, 2) < 0) {
        undo_in_out();
        restore(2, saved_err);
        return -9;
    }

    unbuffer_fresh(streams);
    g_saved_stdin = saved_in;
    g_saved_stdout = saved_out;
    g_saved_stderr = saved_err;
    g_out_fd = g_dev_fd = dev;
    reset_loss_count();
    return 0;
}

int log_redirection_close(void) {
    if (redirected()) {  // a stream left buffered may still hold text for the redirection
        fflush(stdout);
        fflush(stderr);
    }
    if (g_dev_fd >= 0) {
        if (dup2(g_saved_stdin, 0) < 0) return -1;
        close(g_saved_stdin);
        g_saved_stdin = g_dev_fd = -1;
    }
    if (g_out_fd >= 0) {
        if (dup2(g_saved_stdout, 1) < 0) return -1;
        close(g_saved_stdout);
        g_saved_stdout = -1;
    }
    if (g_saved_stderr >= 0) {
        if (dup2(g_saved_stderr, 2) < 0) return -2;
        close(g_saved_stderr);
        g_saved_stderr = -1;
    }
    // The device and the file share out_fd, so it is closed once, here.
    if (g_out_fd >= 0) {
        close(g_out_fd);
        g_out_fd = -1;
    }
    reset_loss_count();
    return 0;
}

}  // extern "C"
