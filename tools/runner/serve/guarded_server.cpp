#include "serve/guarded_server.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <functional>
#include <mutex>
#include <vector>

namespace preview {
namespace {

using Clock = std::chrono::steady_clock;

thread_local bool t_closeAfterAnswer = false;

// Workers with small stacks: 96 of glibc's default 8 MiB would take a quarter of a 32-bit
// device's address space. Handling a request needs far less than 512 KiB.
constexpr size_t kWorkerStack = 512 * 1024;

// cpp-httplib takes ownership of the queue its factory returns and calls shutdown before
// deleting it.
class Workers : public httplib::TaskQueue {
  public:
    explicit Workers(size_t count) {
        pthread_attr_t attributes;
        if (pthread_attr_init(&attributes) != 0) return;
        pthread_attr_setstacksize(&attributes, kWorkerStack);
        for (size_t i = 0; i < count; ++i) {
            pthread_t thread;
            if (pthread_create(&thread, &attributes, &Workers::Loop, this) == 0) {
                m_threads.push_back(thread);
            }
        }
        pthread_attr_destroy(&attributes);
    }
    void enqueue(std::function<void()> fn) override {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_jobs.push_back(std::move(fn));
        }
        m_ready.notify_one();
    }
    void shutdown() override {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_stopping = true;
        }
        m_ready.notify_all();
        for (pthread_t thread : m_threads) pthread_join(thread, nullptr);
        m_threads.clear();
    }

  private:
    static void* Loop(void* self) {
        auto& workers = *static_cast<Workers*>(self);
        for (;;) {
            std::function<void()> job;
            {
                std::unique_lock<std::mutex> lock(workers.m_mutex);
                workers.m_ready.wait(lock,
                                     [&] { return workers.m_stopping || !workers.m_jobs.empty(); });
                if (workers.m_jobs.empty()) return nullptr;
                job = std::move(workers.m_jobs.front());
                workers.m_jobs.pop_front();
            }
            job();
        }
    }
    std::mutex m_mutex;
    std::condition_variable m_ready;
    std::deque<std::function<void()>> m_jobs;
    bool m_stopping = false;
    std::vector<pthread_t> m_threads;
};

int MsLeft(Clock::time_point deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

bool Ready(int fd, short events, int ms) {
    struct pollfd p = {fd, events, 0};
    for (;;) {
        const auto until = Clock::now() + std::chrono::milliseconds(ms);
        const int n = poll(&p, 1, ms);
        if (n >= 0) return n > 0;
        if (errno != EINTR) return false;
        ms = MsLeft(until);
    }
}

// A connection's socket as cpp-httplib reads and writes it, with the request's deadline:
// first the headers' (from the request's first byte), then the body's (from the headers' end).
class BoundedStream : public httplib::Stream {
  public:
    BoundedStream(socket_t sock, const ServerBounds& bounds) : m_sock(sock), m_bounds(bounds) {}

    // Waits up to ms for the next request; false when none comes or the client closed.
    bool WaitForRequest(int ms) {
        if (m_at < m_size) return true;
        return Ready(m_sock, POLLIN, ms);
    }
    void StartRequest() {
        m_deadline = Clock::now() + std::chrono::milliseconds(m_bounds.headerMs);
        m_inHeaders = true;
        m_lineLength = 0;
        m_requestBytes = 0;
    }

    bool is_readable() const override {
        return m_at < m_size || Ready(m_sock, POLLIN, MsLeft(m_deadline));
    }
    bool is_writable() const override { return Ready(m_sock, POLLOUT, m_bounds.writeMs); }

    ssize_t read(char* ptr, size_t size) override {
        // Past the deadline nothing more is taken, however steadily it trickles in.
        if (Clock::now() >= m_deadline) return -1;
        if (m_at == m_size) {
            if (!Ready(m_sock, POLLIN, MsLeft(m_deadline))) return -1;
            const ssize_t n = recv(m_sock, m_buffer, sizeof m_buffer, 0);
            if (n <= 0) return n;
            m_at = 0;
            m_size = static_cast<size_t>(n);
        }
        size_t n = std::min(size, m_size - m_at);
        if (m_inHeaders) n = HeaderBytes(n);
        std::copy(m_buffer + m_at, m_buffer + m_at + n, ptr);
        m_at += n;
        m_requestBytes += n;
        if (m_requestBytes > m_bounds.maxRequestBytes) return -1;
        return static_cast<ssize_t>(n);
    }

    ssize_t write(const char* ptr, size_t size) override {
        if (!is_writable()) return -1;
        return send(m_sock, ptr, size, MSG_NOSIGNAL);
    }

    void get_remote_ip_and_port(std::string& ip, int& port) const override {
        Address(getpeername, ip, port);
    }
    void get_local_ip_and_port(std::string& ip, int& port) const override {
        Address(getsockname, ip, port);
    }
    socket_t socket() const override { return m_sock; }

  private:
    // Of the next n buffered bytes, those up to and including the end of the headers, whose
    // arrival starts the body's deadline. A line of nothing but "\r" or "" ends them.
    size_t HeaderBytes(size_t n) {
        for (size_t k = m_at; k < m_at + n; ++k) {
            const char c = m_buffer[k];
            if (c != '\n') {
                if (c != '\r' || m_lineLength > 0) ++m_lineLength;
                continue;
            }
            if (m_lineLength == 0) {
                m_inHeaders = false;
                m_deadline = Clock::now() + std::chrono::milliseconds(m_bounds.bodyMs);
                return k - m_at + 1;
            }
            m_lineLength = 0;
        }
        return n;
    }

    template <class Get>
    void Address(Get get, std::string& ip, int& port) const {
        struct sockaddr_storage address;
        socklen_t length = sizeof address;
        ip.clear();
        port = 0;
        if (get(m_sock, reinterpret_cast<struct sockaddr*>(&address), &length) != 0) return;
        char host[NI_MAXHOST];
        char service[NI_MAXSERV];
        if (getnameinfo(reinterpret_cast<struct sockaddr*>(&address), length, host, sizeof host,
                        service, sizeof service, NI_NUMERICHOST | NI_NUMERICSERV) == 0) {
            ip = host;
            port = std::atoi(service);
        }
    }

    socket_t m_sock;
    const ServerBounds& m_bounds;
    char m_buffer[4096];
    size_t m_at = 0;
    size_t m_size = 0;
    Clock::time_point m_deadline = Clock::now();
    bool m_inHeaders = true;
    size_t m_lineLength = 0;
    size_t m_requestBytes = 0;
};

}  // namespace

GuardedServer::GuardedServer(const ServerBounds& bounds) : m_bounds(bounds) {
    // Factory of cpp-httplib's interface: the server owns and deletes the queue.
    new_task_queue = [] { return new Workers(kWorkers); };
    set_keep_alive_max_count(100);  // the page asks on every change, over one connection
    // SO_REUSEADDR alone: a restart binds at once, but a second server on the same port fails
    // (with SO_REUSEPORT, cpp-httplib's default, both would listen and share the requests).
    set_socket_options([](socket_t sock) {
        const int yes = 1;
        setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
}

void GuardedServer::CloseAfterAnswer() {
    t_closeAfterAnswer = true;
}

bool GuardedServer::process_and_close_socket(socket_t sock) {
    // An answer goes out as headers and body in two writes: without this, the body would wait
    // for the client's delayed acknowledgement of the headers (Nagle's algorithm), up to 40 ms.
    const int yes = 1;
    setsockopt(sock, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    BoundedStream stream(sock, m_bounds);
    bool closed = false;
    for (size_t count = 0; !closed && count < keep_alive_max_count_; ++count) {
        if (svr_sock_ == INVALID_SOCKET) break;  // the server stops
        if (!stream.WaitForRequest(count == 0 ? m_bounds.firstByteMs : m_bounds.keepAliveMs)) {
            break;
        }
        stream.StartRequest();
        t_closeAfterAnswer = false;
        const bool last = count + 1 == keep_alive_max_count_;
        if (!process_request(stream, last, closed, nullptr) || t_closeAfterAnswer) break;
    }
    shutdown(sock, SHUT_RDWR);
    close(sock);
    return true;
}

}  // namespace preview
