// Progress on standard error: a redrawn line ending in "erase to end of line".
#include "tools/progress.h"

#include <unistd.h>

#include <cstdio>

namespace qeltool {

bool StandardErrorIsTerminal() { return isatty(STDERR_FILENO) == 1; }

std::string ProgressBarText(int done, int failed, int total, double seconds, int width) {
    const int filled = total > 0 ? width * done / total : width;
    std::string bar = "[";
    for (int i = 0; i < width; ++i) bar += i < filled ? '=' : i == filled ? '>' : ' ';
    bar += "] " + std::to_string(done) + "/" + std::to_string(total) + " done";
    if (failed > 0) bar += ", " + std::to_string(failed) + " failed";
    if (done > 0 && seconds > 0) {
        char text[64];
        const double rate = done / seconds;
        std::snprintf(text, sizeof(text), ", %.1f files/s, %.0f s left", rate, (total - done) / rate);
        bar += text;
    }
    return bar;
}

ProgressBar::ProgressBar(int total, bool enabled)
    : total_(total), enabled_(enabled), start_(std::chrono::steady_clock::now()) {
    const std::lock_guard<std::mutex> lock(mutex_);
    Draw();
}

ProgressBar::~ProgressBar() {
    const std::lock_guard<std::mutex> lock(mutex_);
    Clear();
}

double ProgressBar::Seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

void ProgressBar::Update(int done, int failed) {
    const std::lock_guard<std::mutex> lock(mutex_);
    done_ = done, failed_ = failed;
    Draw();
}

void ProgressBar::Say(const std::string& line) {
    const std::lock_guard<std::mutex> lock(mutex_);
    Clear();
    std::fprintf(stderr, "%s\n", line.c_str());
    Draw();
}

void ProgressBar::Finish() {
    const std::lock_guard<std::mutex> lock(mutex_);
    Clear();
    enabled_ = false;
}

void ProgressBar::Draw() {
    if (!enabled_) return;
    std::fprintf(stderr, "\r%s\x1b[K", ProgressBarText(done_, failed_, total_, Seconds(), 30).c_str());
    std::fflush(stderr);
}

void ProgressBar::Clear() {
    if (!enabled_) return;
    std::fputs("\r\x1b[K", stderr);
    std::fflush(stderr);
}

SlowStepNotice::SlowStepNotice(const std::string& what, bool enabled) {
    if (!enabled) return;
    watcher_ = std::thread([this, what] {
        const auto start = std::chrono::steady_clock::now();
        std::unique_lock<std::mutex> lock(mutex_);
        auto next = start + std::chrono::seconds(1);
        while (!finished_.wait_until(lock, next, [this] { return done_; })) {
            const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            std::fprintf(stderr, "\rqel: %s ... %.0f s\x1b[K", what.c_str(), seconds);
            std::fflush(stderr);
            shown_ = true;
            next += std::chrono::seconds(1);
        }
        if (shown_) std::fputs("\r\x1b[K", stderr);
    });
}

SlowStepNotice::~SlowStepNotice() {
    if (!watcher_.joinable()) return;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        done_ = true;
    }
    finished_.notify_one();
    watcher_.join();
}

}  // namespace qeltool
