#include "host/sqlite/shell/callparser.h"

#include "host/sqlite/shell/lexer.h"
#include "host/text.h"

namespace host {

namespace {

std::string_view trim_end(std::string_view text) {
    return text.substr(0, text.find_last_not_of(" \t\r\n\f\v") + 1);
}

class Parser {
  public:
    Parser(std::string_view text, CallStatement& call, StatementError& error)
        : _text(text), _call(call), _error(error) {}

    bool parse() {
        _skip(word_at(_text, _pos).size());  // CALL
        _call.procedure = word_at(_text, _pos);
        if (_call.procedure.empty()) return _fail("CALL needs the name of a procedure");
        _skip(_call.procedure.size());
        if (_at("(") && !_arguments()) return false;
        if (_at(";")) _skip(1);
        return _pos >= _text.size() || _fail("the CALL should end here");
    }

  private:
    bool _at(std::string_view mark) const { return _text.substr(_pos).starts_with(mark); }
    void _skip(std::size_t count) { _pos = skip_blank(_text, _pos + count); }

    bool _fail(std::string message) { return _fail_at(std::move(message), _pos); }
    bool _fail_at(std::string message, std::size_t offset) {
        _error = {std::move(message), offset};
        return false;
    }

    bool _arguments() {
        const std::size_t open = _pos;
        _skip(1);
        if (_at(")")) {
            _skip(1);
            return true;
        }
        for (;;) {
            if (!_argument()) return false;
            if (_pos >= _text.size()) return _fail_at("this ( has no matching )", open);
            const bool last = _at(")");
            _skip(1);
            if (last) return true;
        }
    }

    bool _argument() {
        const std::size_t start = _pos;
        CallStatement::Argument argument;
        argument.name = _name();
        const std::size_t begin = _pos;
        if (!_expression()) return false;
        argument.expression = trim_end(_text.substr(begin, _pos - begin));
        if (argument.expression.empty()) return _fail("an argument is missing here");
        if (argument.name.empty() && _named())
            return _fail_at("an argument without a name stands behind one with a name", start);
        _call.arguments.push_back(argument);
        return true;
    }

    bool _named() const { return !_call.arguments.empty() && !_call.arguments.back().name.empty(); }

    // "name =>" when it stands here, else nothing.
    std::string_view _name() {
        // Without the arrow the word is the beginning of an expression.
        const std::size_t start = _pos;
        const std::string_view name = word_at(_text, _pos);
        _skip(name.size());
        if (!name.empty() && _at("=>")) {
            _skip(2);
            return name;
        }
        _pos = start;
        return {};
    }

    // Moves to the comma or parenthesis that ends the expression here, or to the end of the text.
    bool _expression() {
        std::size_t depth = 0;
        while (_pos < _text.size()) {
            if (!closing_mark(_text, _pos).empty()) {
                const std::size_t end = skip_quoted(_text, _pos);
                if (end == std::string_view::npos) return _fail("this quote or comment has no end");
                _pos = end;
                continue;
            }
            const char c = _text[_pos];
            if (depth == 0 && (c == ',' || c == ')')) return true;
            if (c == '(') ++depth;
            if (c == ')') --depth;
            ++_pos;
        }
        return true;
    }

    const std::string_view _text;
    CallStatement& _call;
    StatementError& _error;
    std::size_t _pos = 0;
};

}  // namespace

bool is_call(std::string_view text) {
    return same_name(word_at(text, skip_blank(text, 0)), "CALL");
}

bool parse_call(std::string_view text, CallStatement& call, StatementError& error) {
    call = {};
    return Parser(text, call, error).parse();
}

}  // namespace host
