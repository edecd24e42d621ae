#ifndef QUOREL_HOST_POSTGRES_SAFENAMES_H
#define QUOREL_HOST_POSTGRES_SAFENAMES_H

#include <deque>
#include <optional>
#include <string>
#include <string_view>

#include "host/postgres/bridge.h"
#include "host/postgres/pathguard.h"
#include "host/procedures.h"

namespace host {

/// What a procedure gets in place of the names of files, so that it opens those that were judged.
/// The names are good as long as this lives.
class SafeNames {
  public:
    /// `settings` outlives it.
    explicit SafeNames(const QuorelSettings& settings) : _settings(settings) {}

    /// The folders that a parameter's files must be in; their count is 0 where any file will do.
    [[nodiscard]] const QuorelFolders& folders(const Parameter& parameter) const {
        return parameter.file == FileUse::Writes ? _settings.write_paths : _settings.read_paths;
    }

    /// A name for the file that `name` means as the value of `parameter`: `name` itself where any
    /// file will do; that of a file which cannot be there, when it cannot be opened. Nothing when
    /// the settings do not allow it.
    [[nodiscard]] std::optional<std::string> name_for(const Parameter& parameter,
                                                      std::string_view name, IfMissing if_missing);

  private:
    [[nodiscard]] std::string _attached(std::string_view name, const Descriptor& file);

    const QuorelSettings& _settings;
    std::deque<Descriptor> _files;
    NamedLink _attachment;
};

}  // namespace host

#endif
