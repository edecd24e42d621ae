#ifndef QUOREL_HOST_WORKER_TITLE_H
#define QUOREL_HOST_WORKER_TITLE_H

#include <string>
#include <string_view>

namespace host {

/// What ps shows of this process: written over the word that it was started with, which its host
/// makes title_room bytes long. It never holds anything of an argument.
class ProcessTitle {
  public:
    /// `word` is main's argv[0].
    explicit ProcessTitle(char* word) : _room(word), _size(std::char_traits<char>::length(word)) {}

    void show(std::string_view text) {
        for (std::size_t i = 0; i < _size; ++i) _room[i] = i < text.size() ? text[i] : '\0';
    }

  private:
    char* const _room;
    const std::size_t _size;
};

inline constexpr std::size_t title_room = 96;

}  // namespace host

#endif
