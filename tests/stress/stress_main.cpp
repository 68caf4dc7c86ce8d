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
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "stress/stress_check.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#include <sanitizer/common_interface_defs.h>
#define QEL_STRESS_SANITIZED 1
#endif

namespace {

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

int Usage() {
    std::fprintf(stderr, "usage: qel_stress [--seed N] [--seconds N | --calls N | --call N]\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    uint64_t seed = 1;
    double seconds = 0;
    uint64_t calls = 0;
    long long single = -1;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
        if (value == nullptr) return Usage();
        ++i;
        if (option == "--seed")
            seed = std::strtoull(value, nullptr, 0);
        else if (option == "--seconds")
            seconds = std::atof(value);
        else if (option == "--calls")
            calls = std::strtoull(value, nullptr, 0);
        else if (option == "--call")
            single = std::atoll(value);
        else
            return Usage();
    }
    if (seconds <= 0 && calls == 0 && single < 0) calls = 10000;

    std::signal(SIGSEGV, OnSignal);
    std::signal(SIGBUS, OnSignal);
    std::signal(SIGFPE, OnSignal);
    std::signal(SIGABRT, OnSignal);
#ifdef QEL_STRESS_SANITIZED
    __sanitizer_set_death_callback(ReportCurrent);
#endif

    const auto start = std::chrono::steady_clock::now();
    uint64_t made = 0;
    for (uint64_t index = single >= 0 ? static_cast<uint64_t>(single) : 0;; ++index) {
        if (single >= 0 && made == 1) break;
        if (calls != 0 && made >= calls) break;
        if (seconds > 0 && (made & 15) == 0 &&
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() >= seconds)
            break;
        std::snprintf(stress::gCallLabel, sizeof(stress::gCallLabel), "--seed %llu --call %llu",
                      static_cast<unsigned long long>(seed), static_cast<unsigned long long>(index));
        stress::RunOneCall(seed, index);
        ++made;
    }
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("qel_stress: seed %llu, %llu operation calls in %.1f s, no fault found\n",
                static_cast<unsigned long long>(seed), static_cast<unsigned long long>(made), elapsed);
    return 0;
}
