#pragma once

#include <stdexcept>
#include <string>

// Why a plug-in did not load, thrown by the loaders and worded by the front end. `what()` is
// the system loader's own reason (dlerror), empty when it gave none.
class LoadFailure : public std::runtime_error {
  public:
    enum class Stage {
        module, // its code could not be opened
        plugin, // the code opened, but gave no plug-in we can use
    };

    LoadFailure(Stage stage, const std::string& reason = {})
        : std::runtime_error(reason), stage(stage) {}

    const Stage stage;
};
