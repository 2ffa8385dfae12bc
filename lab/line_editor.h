/// Reads lines from a terminal, with history and completion, while other lines are shown above.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <histedit.h>

#include "peers/sockets.h"

namespace csi_lab {

/// For the main thread, but say(). Only one at a time.
class line_editor {
public:
    /// The editor ends when the descriptor becomes readable. The tab key completes the words.
    line_editor(int signals, std::vector<std::string> words);
    ~line_editor();
    line_editor(const line_editor&) = delete;
    line_editor& operator=(const line_editor&) = delete;

    /// The next line; nullopt at the end of the input or when a signal arrived.
    [[nodiscard]] std::optional<std::string> next_line();

    /// Shows the line above the one that is being typed. Any thread.
    void say(const std::string& line);

private:
    static int read_character(EditLine* editor, wchar_t* to);
    static unsigned char complete(EditLine* editor, int character);

    int wait_for_character(wchar_t* to);
    unsigned char complete_word();
    void show_lines();
    void clear_typed_rows() const;

    using editor_handle = std::unique_ptr<EditLine, decltype(&el_end)>;
    using history_handle = std::unique_ptr<History, decltype(&history_end)>;

    const int signals_;
    const std::vector<std::string> words_;
    editor_handle editor_;
    history_handle history_;
    std::mutex mutex_;               // guards lines_
    std::vector<std::string> lines_; // to show
    peers::waker added_;             // lines
};

} // namespace csi_lab
