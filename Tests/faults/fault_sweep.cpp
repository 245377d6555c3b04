// SPDX-License-Identifier: Apache-2.0
// Fails every operation of every scenario in turn, in every way in which it can fail.
//
//   fault_sweep [--every K] [CASE]
//
// A case is named scenario/kind/number of the operation/once or onwards; CASE is the beginning of such names. --every runs
// each K-th case. The first crash or hang names its case and ends the run.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <thread>

#include "hostile_device.h"
#include "neighbour.h"
#include "scenarios.h"
#include "unplug_moments.h"

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif
#if defined __SANITIZE_ADDRESS__ || defined __SANITIZE_THREAD__
#define SANITIZED
#include <sanitizer/common_interface_defs.h>
#endif
#ifdef __SANITIZE_THREAD__
/// A race ends the run, as a wrong access does: else the case that it was in would not be known.
extern "C" [[gnu::visibility("default")]] const char* __tsan_default_options() {  // NOLINT: the sanitizer's name
    return "halt_on_error=1";
}
#endif

namespace tovix::faults {
namespace {

constexpr int kPatienceTicks = 300;  // of 0.1 s: ticks and not time, since the whole process may be stopped for a while
constexpr unsigned kCasesBetweenLeakChecks = 200;

int report_file = STDOUT_FILENO;
char running[160] = "";  // name of the case, for whoever has to say where it ended

void say_running(const char* what) {
    const auto put = [](const char* text) {
        [[maybe_unused]] const auto done = write(report_file, text, strlen(text));
    };
    put(what), put(running), put("\n");
}

void crashed(int signal) {
    say_running("CRASH in ");
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

/// Ends the process when a case does not end.
class Watchdog {
  public:
    void case_begins() { ticks_ = 0; }

  private:
    std::atomic<int> ticks_{0};
    std::jthread thread_{[this](const std::stop_token& over) {
        while (!over.stop_requested()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            if (++ticks_ < kPatienceTicks) continue;
            say_running("HANG in ");
            std::abort();
        }
    }};
};

/// What the library prints goes nowhere; what this program and the sanitizers have to say does not.
void silence_library() {
    report_file = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 10);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    close(nowhere);
#ifdef SANITIZED
    __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<std::intptr_t>(report_file)));  // NOLINT
    __sanitizer_set_death_callback([] { say_running("SANITIZER in "); });
#endif
}

bool leaked() {
#ifdef __SANITIZE_ADDRESS__
    return __lsan_do_recoverable_leak_check() != 0;
#else
    return false;
#endif
}

struct Figures {
    std::uint32_t cases = 0, not_reached = 0, failed = 0;
};

class Sweep {
  public:
    Sweep(std::string_view wanted, unsigned every) : wanted_(wanted), every_(every) {}

    void run(const Scenario& scenario) {
        if (!std::string_view(scenario.name).starts_with(wanted_.substr(0, wanted_.find('/')))) return;
        std::snprintf(running, sizeof running, "%s/without faults", scenario.name);
        Figures figures;
        report(play(scenario, std::nullopt), figures);
        std::array<std::vector<Site>, kDomains> traces;
        for (std::size_t i = 0; i < kDomains; ++i)
            traces[i] = injector().trace(static_cast<Domain>(i));
        for (std::size_t i = 0; i < kKinds; ++i) {
            const auto kind = static_cast<Kind>(i);
            const auto& trace = traces[static_cast<std::size_t>(domain_of(kind))];
            for (std::uint32_t index = 0; index < trace.size(); ++index) {
                if (!is_possible(trace[index], kind)) continue;
                run_case(scenario, {kind, index, false}, figures);
                if (!happens_once(kind)) run_case(scenario, {kind, index, true}, figures);
            }
        }
        print(scenario.name, figures, traces);
        add(figures);
    }

    void run_unplugging() {
        if (!wanted_.empty() && !wanted_.starts_with("unplug")) return;
        Figures figures;
        Footprint before{};
        const LongestWaits longest = unplug_at_every_moment(
            [&](const std::string& name) {
                std::snprintf(running, sizeof running, "%s", name.c_str());
                watchdog_.case_begins();
                before = Footprint::now();
            },
            [&](const Findings& findings) {
                ++figures.cases;
                report(with_leftovers(findings, before), figures);
            });
        print("unplug", figures, {});
        dprintf(report_file, "longest after an unplug: waiter %.3f s, stop %.3f s\n", longest.waiter_s, longest.stop_s);
        add(figures);
    }

    void run_hostile_devices() {
        if (!wanted_.empty() && !wanted_.starts_with("hostile")) return;
        Figures figures;
        bool finding_fields = true;
        forge_every_field([&](const std::string& name, const std::function<Findings()>& run) {
            std::snprintf(running, sizeof running, "%s", name.c_str());
            if (!std::exchange(finding_fields, false) && (!name.starts_with(wanted_) || number_++ % every_ != 0))
                return;
            ++figures.cases;
            watchdog_.case_begins();
            const Footprint before = Footprint::now();
            report(with_leftovers(run(), before), figures);
        });
        print("hostile device", figures, {});
        add(figures);
    }

    const Figures& total() const { return total_; }

  private:
    static bool comes_and_goes(Kind kind) { return kind == Kind::kUnplug || kind == Kind::kReplug; }
    static bool happens_once(Kind kind) { return comes_and_goes(kind) || kind == Kind::kFileInterrupted; }

    void run_case(const Scenario& scenario, const Target& target, Figures& figures) {
        std::snprintf(running, sizeof running, "%s/%s/%u/%s", scenario.name, name_of(target.kind).data(), target.index,
                      target.onwards ? "onwards" : "once");
        if (!std::string_view(running).starts_with(wanted_) || number_++ % every_ != 0) return;
        ++figures.cases;
        const Footprint before = Footprint::now();
        Findings findings = play(scenario, target);
        if (injector().strikes() == 0) ++figures.not_reached;
        findings = with_leftovers(std::move(findings), before);
        if (++since_leak_check_ % kCasesBetweenLeakChecks == 0 && leaked())
            findings.emplace_back("memory leaked, here or since the last check");
        report(findings, figures);
    }

    Findings play(const Scenario& scenario, const std::optional<Target>& target) {
        Findings findings;
        watchdog_.case_begins();
        World world(findings);
        {
            const Counted counted;  // already now: threads that are made here are like their creator
            scenario.prepare(world);
            std::optional<Neighbour> neighbour;
            if (target && comes_and_goes(target->kind) && scenario.beside_others) neighbour.emplace(world);
            injector().begin(target);
            scenario.act(world);
            injector().end();
        }
        world.prove_health();
        return findings;
    }

    /// The findings, and what a case has left behind.
    static Findings with_leftovers(Findings findings, const Footprint& before) {
        Footprint after = Footprint::now();
        // A thread that has been joined may take a moment to leave the list of threads.
        for (int i = 0; i < 1000 && after != before; ++i, after = Footprint::now())
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        if (after.objects != before.objects) findings.emplace_back("platform objects are left over");
        if (after.descriptors != before.descriptors) findings.emplace_back("files are left open");
        if (after.threads != before.threads) findings.emplace_back("threads are left over");
        return findings;
    }

    void add(const Figures& figures) {
        total_.cases += figures.cases;
        total_.not_reached += figures.not_reached;
        total_.failed += figures.failed;
    }

    static void report(const Findings& findings, Figures& figures) {
        for (const std::string& finding : findings)
            dprintf(report_file, "%s: %s\n", running, finding.c_str());
        figures.failed += !findings.empty();
    }

    static void print(const char* name, const Figures& figures, const std::array<std::vector<Site>, kDomains>& traces) {
        dprintf(report_file, "%-23s %8zu %7zu %8zu %6zu %7u %12u %7u\n", name, traces[0].size(), traces[1].size(),
                traces[2].size(), traces[3].size(), figures.cases, figures.not_reached, figures.failed);
    }

    const std::string_view wanted_;
    const unsigned every_;
    unsigned number_ = 0, since_leak_check_ = 0;
    Figures total_;
    Watchdog watchdog_;
};

int main_of(std::string_view wanted, unsigned every) {
    silence_library();
    for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGABRT})
        std::signal(signal, &crashed);
    Sweep sweep(wanted, every);
    dprintf(report_file, "%-23s %8s %7s %8s %6s %7s %12s %7s\n", "scenario", "platform", "memory", "threads", "files",
            "cases", "not reached", "failed");
    for (const Scenario& scenario : scenarios())
        sweep.run(scenario);
    sweep.run_unplugging();
    sweep.run_hostile_devices();
    const Figures& total = sweep.total();
    const bool leaks = leaked();
    dprintf(report_file, "%u cases, %u failed%s\n", total.cases, total.failed, leaks ? ", memory leaked" : "");
    return total.failed != 0 || leaks || total.cases == 0 ? 1 : 0;
}

}  // namespace
}  // namespace tovix::faults

int main(int argc, char** argv) {
    unsigned every = 1;
    std::string_view wanted;
    for (int i = 1; i < argc; ++i) {
        if (std::string_view(argv[i]) == "--every" && i + 1 < argc) {
            every = static_cast<unsigned>(std::max(std::atoi(argv[++i]), 1));
        } else {
            wanted = argv[i];
        }
    }
    std::_Exit(tovix::faults::main_of(wanted, every));  // leaks have been looked for
}
