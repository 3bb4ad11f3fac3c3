// The module as a guest in a host's long-lived process: a thread cancelled inside Process,
// several instances running at once on several threads, the input frame held for the whole
// run, and memory in proportion to what a run really produces.
#include <cjson/cJSON.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <thread>

#include "support/fixture.h"

// Every parse of the module comes through here: this binary defines cJSON's entry point, and
// cJSON's own runs behind it. The hook counts the parses inside cJSON at once; on request it
// holds the next parse there until a second one comes in (or a while has passed); and after a
// failed parse it parses a foreign text, as another instance on another thread might, so that
// cJSON's process-wide error position no longer points into the text of the failed one.
namespace parse_hook {
std::atomic<int> inside{0}, most{0};
std::atomic<bool> hold{false}, secondCalling{false};
}  // namespace parse_hook

extern "C" cJSON* cJSON_ParseWithOpts(const char* text, const char** end, cJSON_bool whole) {
    using namespace parse_hook;
    static const auto real = reinterpret_cast<cJSON* (*)(const char*, const char**, cJSON_bool)>(
        dlsym(RTLD_NEXT, "cJSON_ParseWithOpts"));
    const int now = ++inside;
    for (int seen = most; now > seen && !most.compare_exchange_weak(seen, now);) {
    }
    if (hold.exchange(false)) {
        for (int ms = 0; ms < 10000 && !secondCalling; ++ms) usleep(1000);
        for (int ms = 0; ms < 200 && inside < 2; ++ms) usleep(1000);
    }
    cJSON* root = real(text, end, whole);
    if (root == nullptr) cJSON_Delete(real("{\"foreign\": ?", nullptr, 0));
    --inside;
    return root;
}

namespace {

using namespace fv2test;
using Guest = Fixture;

// Points descriptor 1 at fd until the end of the scope.
struct StdoutTo {
    int saved;
    explicit StdoutTo(int fd) : saved((std::fflush(stdout), dup(1))) { dup2(fd, 1); }
    ~StdoutTo() { dup2(saved, 1), close(saved); }
};

// A deferred cancel is pending when Process starts; the first log write acts on it. The
// cancellation's unwind must leave Process (a catch-all that swallowed it would abort the
// process), and the module must serve the next run from another thread.
TEST_F(Guest, ThreadCancelledInsideProcessUnwindsAndTheModuleRunsOn) {
#ifdef __SANITIZE_ADDRESS__
    // A cancellation unwinds out of write() without telling AddressSanitizer, so the frames
    // it leaves keep their poisoned redzones, and the first rethrow after that trips over
    // them (a false stack-buffer-overflow, or a failed check of the runtime's own): true of
    // any catch-and-rethrow, not of this module's. The other builds run this test.
    GTEST_SKIP() << "AddressSanitizer cannot follow a thread cancellation's unwind";
#endif
    ASSERT_EQ(Load(Config({Row("a", "1:p:q:*:%d", 1)})), 0);
    FeedAll(Ints{4, 2});
    log_set_priority(-1, LOG_LEVEL_INFO);  // so that Process writes, a cancellation point
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    StdoutTo quiet(null);

    pthread_t thread;
    auto body = [](void* run) -> void* {
        pthread_cancel(pthread_self());
        (*static_cast<std::function<int()>*>(run))();
        return nullptr;
    };
    std::function<int()> run = [this] { return Run(); };
    ASSERT_EQ(pthread_create(&thread, nullptr, body, &run), 0);
    void* result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);

    int status = -2;
    std::thread([&] { status = Run(); }).join();
    close(null);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(Shown(), "\na:4 2 ");
}

// The input frame goes back to the host only after the result display.
TEST_F(Guest, InputFrameHeldUntilTheRunEnds) {
    ASSERT_EQ(Load(Config({Row("t", "x", 3, 1)})), 0);
    static std::shared_ptr<CScFrame>* input;
    static long usersAtEnd;
    input = &in.frame;
    log_set_callbacker(0, [](int, int, int, const char* line, int) {
        if (std::strstr(line, "send output param end") != nullptr) usersAtEnd = input->use_count();
        return 0;
    });
    ASSERT_EQ(Run(), 0);
    EXPECT_EQ(usersAtEnd, 2);  // the handle's and the module's
    EXPECT_EQ(in.frame.use_count(), 1);
}

// One field of a million elements beside 99 empty ones lays out a million cells of text, not a
// hundred million: the run fits in an address space of 1 GiB. Forked, so that the limit binds
// the child alone; sanitizers and emulators reserve more address space than that themselves.
TEST_F(Guest, SparseArrayRunsInOneGibibyte) {
#ifdef FORMATV2_MEMORY_UNBOUNDED
    GTEST_SKIP() << "address-space limits do not apply to this build";
#endif
    std::vector<std::pair<std::string, std::string>> fields(100, {"1:p:q:*:%d", ""});
    ASSERT_EQ(Load(Config({ArrayRow("grid", fields)})), 0);
    Feed(0, Ints(1000000, 7));
    for (int n = 1; n < 100; ++n) Feed(n, Ints{});
    log_set_callbacker(0, nullptr);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const rlimit limit{1u << 30, 1u << 30};
        setrlimit(RLIMIT_AS, &limit);
        const bool ok = Run() == 0 && out.frame->StringListTable["grid"][0].size() == 1000000;
        _exit(ok ? 0 : 1);
    }
    int wstatus = 0;
    ASSERT_EQ(waitpid(child, &wstatus, 0), child);
    EXPECT_TRUE(WIFEXITED(wstatus) && WEXITSTATUS(wstatus) == 0) << wstatus;
}

// cJSON's parser writes a process-wide variable, so two instances' reads never parse at once:
// the first parse is held inside cJSON while a second instance starts its read on another
// thread, and the second does not come in.
TEST(Instances, ParsesTakeTurnsInsideCjson) {
    log_set_priority(-1, LOG_LEVEL_OFF);
    parse_hook::most = 0;
    parse_hook::hold = true;
    auto read = [](const char* text) { CFormatV2Module().ParsePrivJson(text); };
    std::thread first(read, "{}");
    while (parse_hook::inside == 0) usleep(1000);
    std::thread second([&] { parse_hook::secondCalling = true, read("{\"a\": ?"); });
    first.join();
    second.join();
    EXPECT_EQ(parse_hook::most, 1);
}

// Four instances, each with its own working directory, configuration and module id, run on
// four threads at once with every log line on: through the callback and written to a pipe
// that a reader drains. Each also has its file refused a few times: after each failed parse
// the hook parses another text, and each must still name the error position in its own text.
TEST(Instances, FourAtOnceOnFourThreads) {
    constexpr int kInstances = 4, kRuns = 1000, kRefusals = 3;
    standin::Reset();
    standin::DeclareParam("CommandFormatV2Ensure", PARAM_TYPE_STRING, {}, "0");
    log_prt_init(0, 0, nullptr);
    log_set_priority(-1, LOG_LEVEL_INFO);
    static std::atomic<long> logged{0}, ends[kInstances], wrongPositions{0};
    log_set_callbacker(LOG_LEVEL_INFO, [](int module, int, int, const char* line, int len) {
        logged += len;
        const int i = module - 10;
        if (i < 0 || i >= kInstances) return 0;
        if (std::strstr(line, "formatv2 Process end, status : 0\n") != nullptr) ++ends[i];
        if (const char* at = std::strstr(line, "cJSON parse Error: ")) {
            const std::string tail = "oops" + std::to_string(i) + "\n\033[0m";
            wrongPositions += tail != at + std::strlen("cJSON parse Error: ");
        }
        return 0;
    });

    int pipeFds[2];
    ASSERT_EQ(pipe(pipeFds), 0);
    long drained = 0;
    std::thread reader([&] {
        char buffer[4096];
        for (ssize_t n; (n = read(pipeFds[0], buffer, sizeof buffer)) > 0;) drained += n;
    });

    std::string failures[kInstances];
    CFormatV2Module* modules[kInstances];
    std::vector<std::thread> threads;
    {
        StdoutTo toPipe(pipeFds[1]);
        for (int i = 0; i < kInstances; ++i) {
            threads.emplace_back([i, &failures, &modules] {
                std::string& failed = failures[i];
                char dir[] = "/tmp/fv2guest.XXXXXX";
                if (mkdtemp(dir) == nullptr) return void(failed = "mkdtemp");
                const std::string name = "v" + std::to_string(i), path = dir + std::string("/");
                const std::string good = Config({Row(name, "1:p:" + name + ":*:%3d", 3),
                                                 ArrayRow("grid", {{"1:p:g:*:%d", ","}})});
                auto put = [&](const std::string& text) {
                    std::ofstream(path + "algo_private.json", std::ios::binary) << text;
                };
                put(good);
                CFormatV2Module* m = modules[i] = static_cast<CFormatV2Module*>(CreateModule());
                m->SetModuleId(10 + i);
                if (m->SetPwd(dir) != 0 || m->InitAlgoPrivate() != 0) failed += "init;";
                for (int r = 0; r < kRefusals; ++r) {
                    put("{\"ModuleName\": oops" + std::to_string(i));
                    if (m->SetParam("CommandFormatV2Ensure", "1", 1) != int(0xC0000105)) {
                        failed += "refusal;";
                    }
                }
                put(good);
                if (m->SetParam("CommandFormatV2Ensure", "1", 1) != 0) failed += "reread;";

                standin::InputHandle in;
                in.frame = std::make_shared<CScFrame>();
                in.frame->IntTable["SINGLE_img_mode"] = 0;
                auto source = std::make_shared<CScFrame>();
                in.Bind("input0", source, "k");
                in.Bind("input1", source, "g");
                source->IntListTable["g"] = {i, i + 1};
                for (int r = 0; r < kRuns && failed.empty(); ++r) {
                    source->IntTable["k"] = r;
                    standin::OutputHandle out;
                    const std::string want = std::string(r < 10    ? "00"
                                                         : r < 100 ? "0"
                                                                   : "") +
                                             std::to_string(r);
                    if (m->Process(in.handle(), out.handle()) != 0 ||
                        out.frame->StringListTable[name] != Strings{want} ||
                        out.frame->StringListTable["grid"][0] !=
                            std::to_string(i) + "," + std::to_string(i + 1)) {
                        failed += "run " + std::to_string(r) + ";";
                    }
                }
                std::filesystem::remove_all(dir);
            });
        }
        for (std::thread& t : threads) t.join();
    }
    close(pipeFds[1]);
    reader.join();
    close(pipeFds[0]);
    log_set_callbacker(0, nullptr);

    const auto calls = standin::ResultCalls();
    for (int i = 0; i < kInstances; ++i) {
        EXPECT_EQ(failures[i], "") << i;
        EXPECT_EQ(ends[i], kRuns) << i;
        const long sent = std::count_if(calls.begin(), calls.end(), [&](const auto& call) {
            return call.manager == &modules[i]->ResultManage && call.op == "SendResultInfoExist";
        });
        EXPECT_EQ(sent, kRuns) << i;
        DestroyModule(nullptr, modules[i]);
    }
    EXPECT_EQ(standin::UpProcessTimeCalls(), kInstances * kRuns);
    EXPECT_EQ(wrongPositions, 0);
    EXPECT_EQ(drained, logged);  // every line written whole to the output, none lost
}

}  // namespace
