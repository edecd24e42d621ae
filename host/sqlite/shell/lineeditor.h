#ifndef QUOREL_HOST_SQLITE_SHELL_LINEEDITOR_H
#define QUOREL_HOST_SQLITE_SHELL_LINEEDITOR_H

/// Input lines from a terminal, with editing and completion.

#include <string>
#include <string_view>
#include <vector>

#include <histedit.h>

#include "host/sqlite/shell/inputhistory.h"

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

    /// Tab completes the word before the cursor from `words`; the arrow keys walk through the
    /// history, which outlives the editor.
    LineEditor(std::vector<std::string> words, const InputHistory& history_of_input);
    LineEditor(const LineEditor&) = delete;
    LineEditor& operator=(const LineEditor&) = delete;
    ~LineEditor();

    Input read(const char* prompt, std::string& line);

  private:
    static LineEditor& _of(EditLine* editor);
    static char* _show_prompt(EditLine* editor);
    static unsigned char _on_cancel(EditLine* editor, int key);
    static unsigned char _on_suspend(EditLine* editor, int key);
    static unsigned char _on_complete(EditLine* editor, int key);

    void _bind_keys();
    [[nodiscard]] std::vector<std::string_view> _candidates(std::string_view begun) const;

    std::vector<std::string> _words;
    EditLine* _editor;
    std::string _prompt;
    bool _cancelled = false;
};

}  // namespace host

#endif
