// Progress shown on standard error while qel works, only when it is a
// terminal: a bar for a batch of files, and a line for a single step or
// write that takes longer than about a second.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace qeltool {

bool StandardErrorIsTerminal();

// "[=======>          ] 12/40 done, 1 failed, 5.3 files/s, 6 s left"
std::string ProgressBarText(int done, int failed, int total, double seconds, int width);

// The batch bar. Messages printed through it appear above the bar. Safe to
// call from several threads.
class ProgressBar {
public:
    ProgressBar(int total, bool enabled);
    ~ProgressBar();
    void Update(int done, int failed);
    // Prints one line (without its newline) on standard error.
    void Say(const std::string& line);
    double Seconds() const;
    // Removes the bar for good, before the summary.
    void Finish();

private:
    void Draw();
    void Clear();
    std::mutex mutex_;
    const int total_;
    bool enabled_;
    int done_ = 0, failed_ = 0;
    const std::chrono::steady_clock::time_point start_;
};

// While alive, shows "qel: WHAT ... N s" once WHAT has taken a second, and
// removes it when done.
class SlowStepNotice {
public:
    SlowStepNotice(const std::string& what, bool enabled);
    ~SlowStepNotice();
    SlowStepNotice(const SlowStepNotice&) = delete;
    SlowStepNotice& operator=(const SlowStepNotice&) = delete;

private:
    std::mutex mutex_;
    std::condition_variable finished_;
    bool done_ = false;
    bool shown_ = false;
    std::thread watcher_;
};

}  // namespace qeltool
