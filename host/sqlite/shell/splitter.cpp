#include "host/sqlite/shell/splitter.h"

#include <algorithm>

#include <sqlite3.h>

#include "host/sqlite/shell/dotcommands.h"
#include "host/sqlite/shell/lexer.h"

namespace host {

void StatementSplitter::add(std::string_view lines) {
    _text.erase(0, _begin);
    _scanned -= _begin;
    _begin = 0;
    constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
    if (_fresh && lines.starts_with(byte_order_mark)) lines.remove_prefix(byte_order_mark.size());
    _fresh = _fresh && lines.empty();
    _text += lines;
}

std::optional<Statement> StatementSplitter::next() {
    _skip_blank();
    if (!pending()) return std::nullopt;
    const std::optional<std::size_t> end = _find_end();
    if (!end) return std::nullopt;
    return _take(*end);
}

std::optional<Statement> StatementSplitter::rest() {
    _skip_blank();
    if (!pending()) return std::nullopt;
    return _take(_text.size());
}

void StatementSplitter::clear() {
    _take(_text.size());
}

std::optional<std::size_t> StatementSplitter::_find_end() {
    const std::size_t line_end = std::min(_text.find('\n', _begin), _text.size());
    if (is_dot_command(std::string_view(_text).substr(_begin, line_end - _begin))) return line_end;

    while (_scanned < _text.size()) {
        if (!_closing.empty()) {
            const std::size_t end = _text.find(_closing, _scanned);
            _scanned = end == std::string::npos ? _text.size() : end + _closing.size();
            if (end != std::string::npos) _closing = {};
            continue;
        }
        _closing = closing_mark(_text, _scanned);
        if (!_closing.empty()) {
            _scanned += opening_length(_text, _scanned);
            continue;
        }
        if (_text[_scanned++] != ';') continue;
        // SQLite is asked at semicolons alone: it reads the statement from its beginning each time.
        const std::string statement = _text.substr(_begin, _scanned - _begin);
        if (sqlite3_complete(statement.c_str()) != 0) return _scanned;
    }
    return std::nullopt;
}

Statement StatementSplitter::_take(std::size_t end) {
    Statement statement{_text.substr(_begin, end - _begin), _line};
    _line +=
        static_cast<std::size_t>(std::count(statement.text.begin(), statement.text.end(), '\n'));
    _begin = _scanned = end;
    _closing = {};
    return statement;
}

void StatementSplitter::_skip_blank() {
    const std::size_t begin = skip_blank(_text, _begin);
    if (begin == _begin) return;
    _line += static_cast<std::size_t>(
        std::count(_text.begin() + static_cast<std::ptrdiff_t>(_begin),
                   _text.begin() + static_cast<std::ptrdiff_t>(begin), '\n'));
    _begin = _scanned = begin;
    _closing = {};
}

}  // namespace host
