#include "tests/support/import_patch.h"

#include <elf.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <stdexcept>

namespace support {
namespace {

struct Tables {
    const ElfW(Sym) * symbols = nullptr;
    const char* strings = nullptr;
    const ElfW(Rela) * relocations[2] = {};
    std::size_t sizes[2] = {};
};

Tables ReadTables(const link_map& map) {
    Tables tables;
    for (const ElfW(Dyn)* entry = map.l_ld; entry->d_tag != DT_NULL; ++entry) {
        const auto address = entry->d_un.d_ptr;
        switch (entry->d_tag) {
        case DT_SYMTAB:
            tables.symbols = reinterpret_cast<const ElfW(Sym)*>(address);
            break;
        case DT_STRTAB:
            tables.strings = reinterpret_cast<const char*>(address);
            break;
        case DT_RELA:
            tables.relocations[0] = reinterpret_cast<const ElfW(Rela)*>(address);
            break;
        case DT_RELASZ:
            tables.sizes[0] = entry->d_un.d_val;
            break;
        case DT_JMPREL:
            tables.relocations[1] = reinterpret_cast<const ElfW(Rela)*>(address);
            break;
        case DT_PLTRELSZ:
            tables.sizes[1] = entry->d_un.d_val;
            break;
        default:
            break;
        }
    }
    return tables;
}

// Calls visit(name, slot) for each imported symbol.
void ForEachImport(void* library, const std::function<void(const char*, void**)>& visit) {
    const auto& map = *static_cast<const link_map*>(library);
    const Tables tables = ReadTables(map);
    for (int table = 0; table < 2; ++table) {
        const std::size_t count = tables.sizes[table] / sizeof(ElfW(Rela));
        for (std::size_t i = 0; i < count; ++i) {
            const ElfW(Rela)& relocation = tables.relocations[table][i];
            const ElfW(Sym)& symbol = tables.symbols[ELF64_R_SYM(relocation.r_info)];
            if (symbol.st_shndx == SHN_UNDEF && symbol.st_name != 0) {
                visit(tables.strings + symbol.st_name,
                      reinterpret_cast<void**>(map.l_addr + relocation.r_offset));
            }
        }
    }
}

} // namespace

std::set<std::string> ImportNames(void* library) {
    std::set<std::string> names;
    ForEachImport(library, [&](const char* name, void**) { names.insert(name); });
    return names;
}

bool HoldsCppRuntime(void* library) {
    return !ImportNames(library).contains("_Znwm");
}

ImportPatch::ImportPatch(void* library, const std::string& symbol, void* replacement) {
    ForEachImport(library, [&](const char* name, void** slot) {
        if (symbol == name) {
            slot_ = slot;
        }
    });
    if (slot_ == nullptr) {
        throw std::runtime_error("the library imports no " + symbol);
    }
    original_ = *slot_;
    Write(replacement);
}

ImportPatch::~ImportPatch() {
    Write(original_);
}

void ImportPatch::Write(void* value) {
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto start = reinterpret_cast<std::uintptr_t>(slot_) & ~(page - 1);
    mprotect(reinterpret_cast<void*>(start), page, PROT_READ | PROT_WRITE);
    *slot_ = value;
}

} // namespace support
