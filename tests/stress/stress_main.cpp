// Randomized stress driver: calls every public operation of the five
// components with random images and parameters, checking guard bytes,
// reference counts and untouched inputs after each call. Runs from the build
// folder (the module and the runtime sit in ./_binLIN64/).
//
//   qel_stress --seed 7 --seconds 60     random calls for a minute
//   qel_stress --seed 7 --calls 100000   a fixed number of calls
//   qel_stress --seed 7 --call 4711      one call again, to reproduce a report
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>

#include "stress/stress_check.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#include <sanitizer/common_interface_defs.h>
#define QEL_STRESS_SANITIZED 1
#endif

namespace {

// Only write(2) here: this runs in a signal handler, or as a sanitizer ends the program.
void ReportCurrent() {
    const char prefix[] = "\nqel_stress: the failing call was ";
    ssize_t ignored = write(2, prefix, sizeof(prefix) - 1);
    ignored = write(2, stress::gCallLabel, std::strlen(stress::gCallLabel));
    ignored = write(2, "\n", 1);
    (void)ignored;
}

void OnSignal(int signal) {
    ReportCurrent();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

}  // namespace

int main(int argc, char** argv) {
    uint64_t seed = 1, calls = 0, first = 0;
    double seconds = 0;
    // Options come in pairs: a name and its value.
    bool understood = argc % 2 == 1;
    for (int i = 1; understood && i < argc; i += 2) {
        const std::string option = argv[i];
        const char* value = argv[i + 1];
        if (option == "--seed") {
            seed = std::strtoull(value, nullptr, 0);
        } else if (option == "--seconds") {
            seconds = std::atof(value);
        } else if (option == "--calls") {
            calls = std::strtoull(value, nullptr, 0);
        } else if (option == "--call") {
            first = std::strtoull(value, nullptr, 0);
            calls = 1;
        } else {
            understood = false;
        }
    }
    if (!understood) {
        std::fprintf(stderr, "usage: qel_stress [--seed N] [--seconds N | --calls N | --call N]\n");
        return 2;
    }
    if (seconds <= 0 && calls == 0) calls = 10000;

    for (int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGABRT}) std::signal(signal, OnSignal);
#ifdef QEL_STRESS_SANITIZED
    __sanitizer_set_death_callback(ReportCurrent);
#endif

    const auto start = std::chrono::steady_clock::now();
    const auto elapsed = [&] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    uint64_t made = 0;
    for (; calls == 0 || made < calls; ++made) {
        if (seconds > 0 && (made & 15) == 0 && elapsed() >= seconds) break;
        std::snprintf(stress::gCallLabel, sizeof(stress::gCallLabel), "--seed %llu --call %llu",
                      static_cast<unsigned long long>(seed), static_cast<unsigned long long>(first + made));
        stress::RunCall(stress::Draw(seed, first + made));
    }
    std::printf("qel_stress: seed %llu, %llu operation calls in %.1f s, no fault found\n",
                static_cast<unsigned long long>(seed), static_cast<unsigned long long>(made), elapsed());
    return 0;
}
