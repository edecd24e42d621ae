#include "host/sqlite/shell/lineeditor.h"

#include <csignal>
#include <cstdio>

#include "host/sqlite/shell/signals.h"
#include "host/text.h"

namespace host {

namespace {

bool in_word(char c) {
    return is_letter(c) || is_digit(c) || c == '_' || c == '.';
}

// The part before the cursor that a completion continues.
std::string_view begun_word(const LineInfo& line) {
    const char* begin = line.cursor;
    while (begin > line.buffer && in_word(begin[-1])) --begin;
    return {begin, static_cast<std::size_t>(line.cursor - begin)};
}

std::size_t common_length(const std::vector<std::string_view>& words) {
    std::string_view common = words.front();
    for (const std::string_view word : words)
        while (!same_name(word.substr(0, common.size()), common)) common.remove_suffix(1);
    return common.size();
}

}  // namespace

LineEditor::LineEditor(std::vector<std::string> words, const InputHistory& history_of_input)
    : _words(std::move(words)), _editor(el_init("quorelsql", stdin, stdout, stderr)) {
    el_set(_editor, EL_CLIENTDATA, this);
    el_set(_editor, EL_PROMPT, &_show_prompt);
    el_set(_editor, EL_EDITOR, "emacs");
    el_set(_editor, EL_HIST, history, history_of_input.entries());
    el_set(_editor, EL_SIGNAL, 1);
    el_source(_editor, nullptr);
    _bind_keys();
}

LineEditor::~LineEditor() {
    el_end(_editor);
}

// Ctrl-C and Ctrl-Z are keys while a line is edited, so that no signal comes in between. They are
// bound for vi's command mode too. (Only the wide form of EL_ADDFN leaks nothing.)
void LineEditor::_bind_keys() {
    el_set(_editor, EL_SETTY, "-d", "-isig", nullptr);
    el_wset(_editor, EL_ADDFN, L"sql-cancel", L"Void the input", &_on_cancel);
    el_wset(_editor, EL_ADDFN, L"sql-complete", L"Complete a name", &_on_complete);
    el_wset(_editor, EL_ADDFN, L"sql-suspend", L"Stop the shell", &_on_suspend);
    el_set(_editor, EL_BIND, "^C", "sql-cancel", nullptr);
    el_set(_editor, EL_BIND, "-a", "^C", "sql-cancel", nullptr);
    el_set(_editor, EL_BIND, "^Z", "sql-suspend", nullptr);
    el_set(_editor, EL_BIND, "-a", "^Z", "sql-suspend", nullptr);
    el_set(_editor, EL_BIND, "^I", "sql-complete", nullptr);
    el_set(_editor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
}

LineEditor::Input LineEditor::read(const char* prompt, std::string& line) {
    const NoInterrupts held_back;
    _prompt = prompt;
    _cancelled = false;
    int length = 0;
    // Before the prompt appears, so that a key pressed in answer to it is a key already.
    el_set(_editor, EL_PREP_TERM, 1);
    const char* text = el_gets(_editor, &length);
    if (_cancelled) return Input::Cancelled;
    if (text == nullptr || length <= 0) {
        fputc('\n', stdout);
        return Input::End;
    }
    line.assign(text, static_cast<std::size_t>(length));
    if (line.ends_with('\n')) line.pop_back();
    return Input::Line;
}

LineEditor& LineEditor::_of(EditLine* editor) {
    LineEditor* self = nullptr;
    el_get(editor, EL_CLIENTDATA, &self);
    return *self;
}

char* LineEditor::_show_prompt(EditLine* editor) {
    return _of(editor)._prompt.data();
}

unsigned char LineEditor::_on_cancel(EditLine* editor, int /*key*/) {
    _of(editor)._cancelled = true;
    const LineInfo& line = *el_line(editor);
    el_cursor(editor, static_cast<int>(line.lastchar - line.cursor));
    el_insertstr(editor, "^C");
    el_push(editor, "\n");
    return CC_REFRESH;
}

// The editor's own handler restores the terminal first, and comes back to it afterwards.
unsigned char LineEditor::_on_suspend(EditLine* /*editor*/, int /*key*/) {
    raise(SIGTSTP);
    return CC_REDISPLAY;
}

std::vector<std::string_view> LineEditor::_candidates(std::string_view begun) const {
    std::vector<std::string_view> found;
    if (begun.empty()) return found;
    for (const std::string& word : _words)
        if (same_name(std::string_view(word).substr(0, begun.size()), begun)) found.push_back(word);
    return found;
}

// A tab where nothing can be completed is text, as when indented lines are pasted.
unsigned char LineEditor::_on_complete(EditLine* editor, int /*key*/) {
    const std::string begun(begun_word(*el_line(editor)));
    const std::vector<std::string_view> found = _of(editor)._candidates(begun);
    if (found.empty()) {
        el_insertstr(editor, "\t");
        return CC_REFRESH;
    }
    const std::size_t common = common_length(found);
    if (common > begun.size()) {
        el_deletestr(editor, static_cast<int>(begun.size()));
        el_insertstr(editor, std::string(found.front().substr(0, common)).c_str());
        return CC_REFRESH;
    }
    if (found.size() == 1) return CC_REFRESH_BEEP;
    fputc('\n', stdout);
    for (const std::string_view word : found)
        fprintf(stdout, "%.*s  ", static_cast<int>(word.size()), word.data());
    fputc('\n', stdout);
    return CC_REDISPLAY;
}

}  // namespace host
