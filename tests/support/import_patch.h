#pragma once

#include <set>
#include <string>

namespace support {

// Names of all that a loaded library imports. `library` is a dlopen handle.
std::set<std::string> ImportNames(void* library);

// True where the C++ runtime is part of the library, as on a device: what `new` asks for then shows
// as a call of malloc.
bool HoldsCppRuntime(void* library);

// Replaces one imported function of one loaded library for this object's life: only that library's
// calls are changed, whatever else the process does, sanitizers included. Patches of one function
// nest. Not for several threads; the library must be bound (RTLD_NOW).
class ImportPatch {
public:
    // `library` is a dlopen handle. Throws std::runtime_error where it does not import `symbol`.
    ImportPatch(void* library, const std::string& symbol, void* replacement);
    ~ImportPatch();
    ImportPatch(const ImportPatch&) = delete;
    ImportPatch& operator=(const ImportPatch&) = delete;

    // The function that the library called before.
    template <typename Function>
    Function* original() const {
        return reinterpret_cast<Function*>(original_);
    }

private:
    void Write(void* value);

    void** slot_ = nullptr;
    void* original_ = nullptr;
};

} // namespace support
