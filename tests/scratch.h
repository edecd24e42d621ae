#ifndef QUOREL_TESTS_SCRATCH_H
#define QUOREL_TESTS_SCRATCH_H

// Files that a test makes and reads, and what it fills them with.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

/// A folder of the test's own, removed with its contents.
class ScratchFolder {
  public:
    ScratchFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "quorel-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) std::abort();
        _path = name;
    }
    ~ScratchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(_path, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    /// The path of a file in the folder, there or not.
    [[nodiscard]] std::string file(const std::string& name) const {
        return (_path / name).string();
    }

    /// The same of a file that is made, or replaced, with these contents.
    [[nodiscard]] std::string file_with(const std::string& name, const std::string& bytes) const {
        std::ofstream(file(name), std::ios::binary) << bytes;
        return file(name);
    }

  private:
    std::filesystem::path _path;
};

/// The contents of a file; empty when it cannot be read.
inline std::string bytes_of(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

/// How many files a folder has. That of a process's descriptors counts the one it is read through.
inline long entries(const char* path) {
    const std::filesystem::directory_iterator folder(path);
    return static_cast<long>(std::distance(begin(folder), end(folder)));
}

/// `text` as one word of a command line for /bin/sh.
inline std::string shell_word(const std::string& text) {
    std::string word = "'";
    for (const char c : text) word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return word + "'";
}

/// `length` bytes with no short period, so that lost, doubled or swapped pieces show.
inline std::string pattern(std::size_t length) {
    std::string bytes(length, '\0');
    unsigned state = 1;
    for (char& byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

#endif
