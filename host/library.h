#ifndef QUOREL_HOST_LIBRARY_H
#define QUOREL_HOST_LIBRARY_H

/// The loaded procedure library, as a host sees it: plain symbols behind dlopen.

#include <memory>
#include <string>
#include <string_view>

#include "host/engine.h"

namespace host {

/// A loaded library, or none. Copies share it, and the last one that goes unloads it. Calls run in
/// this process: one that waits for something else than a command waits as long as it takes.
class Library : public Engine {
  public:
    /// Loads the library at `path`, or, when `path` is empty, the one that default_library_path()
    /// names, and checks that it speaks interface version 2. On failure returns an empty Library
    /// and puts a sentence that says what to do into `error`; `remedy` is what this host's user can
    /// do about a missing file.
    static Library
    load(std::string path, std::string& error,
         std::string_view remedy = "install libquorel, or name its file in QUOREL_LIBRARY");

    [[nodiscard]] bool loaded() const { return _handle != nullptr; }

    /// The exported procedure called `name`; null when the library has none of that name.
    [[nodiscard]] an_extfn_proc* procedure(std::string_view name) const;

    CallEnd call(std::string_view name, an_extfn_api& api, void* handle,
                 const Interrupted& interrupted, std::string& error) const override;

    /// Passes a registered record to extfn_cancel.
    void cancel(void* record) const override { _cancel(record); }

  private:
    std::shared_ptr<void> _handle;
    an_extfn_cancel_fn* _cancel = nullptr;
};

}  // namespace host

#endif
