#include "host/compose/foldedheader.h"

#include <algorithm>

namespace host {

FoldedHeader::FoldedHeader(std::string& to, std::string_view name)
    : _to(to), _column(name.size() + 1) {
    _to.append(name);
    _to += ':';
}

void FoldedHeader::put(std::string_view word, std::string_view gap) {
    if (_column + gap.size() + word.size() > width) {
        _to += "\r\n";
        _column = 0;
    }
    _to.append(gap);
    _to.append(word);
    _column += gap.size() + word.size();
    if (_column > longest_line) _fits = false;
}

std::size_t FoldedHeader::room() const {
    return width - std::min(width, _column + 1);
}

bool FoldedHeader::end() {
    _to += "\r\n";
    return _fits;
}

}  // namespace host
