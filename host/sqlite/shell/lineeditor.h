#ifndef QUOREL_HOST_SQLITE_SHELL_LINEEDITOR_H
#define QUOREL_HOST_SQLITE_SHELL_LINEEDITOR_H

/// Input lines from a terminal, with editing, history and completion.

#include <string>
#include <string_view>
#include <vector>

#include <histedit.h>

namespace host {

/// Works on standard input and output, which are terminals. Keys are the emacs ones unless the
/// user's ~/.editrc says otherwise.
class LineEditor {
  public:
    enum class Input {
        Line,       ///< one line, without its end
        Cancelled,  ///< Ctrl-C: what was typed is void
        End         ///< Ctrl-D on an empty line, or the terminal is gone
    };

    /// Tab completes the word before the cursor from `words`. History is loaded from, and kept in,
    /// history_path().
    explicit LineEditor(std::vector<std::string> words);
    LineEditor(const LineEditor&) = delete;
    LineEditor& operator=(const LineEditor&) = delete;
    ~LineEditor();

    Input read(const char* prompt, std::string& line);

    /// Adds an entry to the history; `keep` adds it to the file too, beside what other shells have
    /// added there.
    void remember(const std::string& entry, bool keep);

    /// quorelsql/history below XDG_STATE_HOME, else below ~/.local/state; empty when neither that
    /// variable nor HOME is set.
    static std::string history_path();

  private:
    static LineEditor& _of(EditLine* editor);
    static char* _show_prompt(EditLine* editor);
    static unsigned char _on_cancel(EditLine* editor, int key);
    static unsigned char _on_suspend(EditLine* editor, int key);
    static unsigned char _on_complete(EditLine* editor, int key);

    void _bind_keys();
    [[nodiscard]] std::vector<std::string_view> _candidates(std::string_view begun) const;

    std::vector<std::string> _words;
    std::string _history_file;   // empty: none
    History* _recall = nullptr;  // what the arrow keys walk through
    EditLine* _editor = nullptr;
    std::string _prompt;
    bool _cancelled = false;
};

}  // namespace host

#endif
