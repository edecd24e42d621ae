#include "host/worker/openengine.h"

#include <cstdlib>

#include "host/library.h"
#include "host/text.h"
#include "host/worker/workerclient.h"

namespace host {

Place wanted_place(Place otherwise) {
    const char* wish = getenv("QUOREL_WORKER");
    const std::optional<bool> worker = parse_switch(wish != nullptr ? wish : "");
    if (!worker) return otherwise;
    return *worker ? Place::InWorker : Place::InProcess;
}

std::shared_ptr<const Engine> open_engine(Place place, const std::string& path,
                                          std::string_view remedy, std::string& error,
                                          ProcessGroup group) {
    if (place == Place::InWorker) {
        WorkerFiles files;
        if (!find_worker(path, remedy, files, error)) return nullptr;
        files.group = group;
        return std::make_shared<WorkerClient>(std::move(files));
    }
    auto library = std::make_shared<Library>(Library::load(path, error, remedy));
    return library->loaded() ? std::move(library) : nullptr;
}

}  // namespace host
