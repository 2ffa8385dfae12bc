/// What tests of several subsystems need: bounded waits, a scratch folder, the log as lines.
#pragma once

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "daemon/log.h"

using texts = std::vector<std::string>;

class stopwatch {
public:
    [[nodiscard]] std::chrono::steady_clock::duration elapsed() const {
        return std::chrono::steady_clock::now() - start_;
    }

private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

/// Waits until the condition holds; false when it does not within the bound.
inline bool wait_until(const std::function<bool()>& condition,
                       std::chrono::milliseconds bound = std::chrono::seconds(10)) {
    const stopwatch watch;
    while (!condition()) {
        if (watch.elapsed() >= bound) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

struct temporary_directory {
    temporary_directory() {
        std::string pattern = std::filesystem::temp_directory_path() / "csi_receiver_XXXXXX";
        path = mkdtemp(pattern.data());
    }
    ~temporary_directory() { std::filesystem::remove_all(path); }
    temporary_directory(const temporary_directory&) = delete;
    temporary_directory& operator=(const temporary_directory&) = delete;

    /// Returns the file's path.
    std::string write(const std::string& name, const std::string& text) const {
        std::ofstream(path + "/" + name) << text;
        return path + "/" + name;
    }
    /// The file's text, or "absent" when there is no such file.
    [[nodiscard]] std::string read(const std::string& name) const {
        std::ifstream file(path + "/" + name);
        std::ostringstream text;
        text << file.rdbuf();
        return file ? text.str() : "absent";
    }

    std::string path;
};

/// The lines of a text, with the mark for the times that the log puts in front of them.
inline texts lines_of(const std::string& text, const std::string& mark = "") {
    texts result;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        const bool has_time = line.rfind("[2", 0) == 0;
        result.push_back(has_time ? mark + line.substr(line.find("] ") + 2) : line);
    }
    return result;
}

/// Captures standard output. To be read when no other thread logs any more.
class captured_output {
public:
    captured_output()
        : own_(std::cout.rdbuf(text_.rdbuf())) {}
    ~captured_output() { std::cout.rdbuf(own_); }
    captured_output(const captured_output&) = delete;
    captured_output& operator=(const captured_output&) = delete;

    /// Without what lines() returned.
    [[nodiscard]] std::string text() const { return text_.str(); }

    /// The lines since the last call.
    [[nodiscard]] texts lines() {
        texts result = lines_of(text_.str());
        text_.str("");
        return result;
    }

private:
    std::ostringstream text_;
    std::streambuf* own_;
};
