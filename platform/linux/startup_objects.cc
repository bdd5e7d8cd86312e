// SPDX-License-Identifier: Apache-2.0
//
// The objects that were mapped with the program and remain to its end: the closure
// of the program's DT_NEEDED entries, over the loader's own list.

#include "startup_objects.hpp"

#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

namespace aaaplatform {
namespace {

std::string_view base_name(std::string_view path) {
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// The loader has replaced the offset of the string table by its address,
// except where the dynamic section is read-only, as in the kernel's own object.
const char *string_table(const link_map *map) {
    for (const ElfW(Dyn) *entry = map->l_ld; entry->d_tag != DT_NULL; ++entry) {
        if (entry->d_tag != DT_STRTAB) {
            continue;
        }
        const ElfW(Addr) address =
            entry->d_un.d_ptr < map->l_addr ? entry->d_un.d_ptr + map->l_addr : entry->d_un.d_ptr;
        return reinterpret_cast<const char *>(address);
    }
    return nullptr;
}

std::vector<std::string_view> strings_of(const link_map *map, ElfW(Sxword) tag) {
    std::vector<std::string_view> result;
    const char *strings = string_table(map);
    if (strings == nullptr) {
        return result;
    }
    for (const ElfW(Dyn) *entry = map->l_ld; entry->d_tag != DT_NULL; ++entry) {
        if (entry->d_tag == tag) {
            result.emplace_back(strings + entry->d_un.d_val);
        }
    }
    return result;
}

bool has_name(const link_map *map, std::string_view name) {
    if (map->l_name == name || base_name(map->l_name) == name) {
        return true;
    }
    const auto sonames = strings_of(map, DT_SONAME);
    return !sonames.empty() && sonames.front() == name;
}

const link_map *find_map(const link_map *first, std::string_view name) {
    for (const link_map *map = first; map != nullptr; map = map->l_next) {
        if (has_name(map, name)) {
            return map;
        }
    }
    return nullptr;
}

void add_once(std::vector<const link_map *> &maps, const link_map *map) {
    if (map == nullptr) {
        return;
    }
    for (const link_map *known : maps) {
        if (known == map) {
            return;
        }
    }
    maps.push_back(map);
}

void add_preloaded(std::vector<const link_map *> &maps, const link_map *first) {
    const char *names = getenv("LD_PRELOAD");
    if (names == nullptr) {
        return;
    }
    std::string_view rest = names;
    while (!rest.empty()) {
        const auto end = rest.find_first_of(" :");
        const std::string_view name = rest.substr(0, end);
        if (!name.empty()) {
            add_once(maps, find_map(first, name));
        }
        if (end == std::string_view::npos) {
            return;
        }
        rest.remove_prefix(end + 1);
    }
}

std::vector<const link_map *> startup_maps(const link_map *program) {
    std::vector<const link_map *> maps{program};
    add_preloaded(maps, program);
    for (std::size_t next = 0; next < maps.size(); ++next) {
        for (std::string_view name : strings_of(maps[next], DT_NEEDED)) {
            add_once(maps, find_map(program, name));
        }
    }
    return maps;
}

const link_map *program_map() {
    void *program = dlopen(nullptr, RTLD_LAZY);
    if (program == nullptr) {
        return nullptr;
    }
    link_map *map = nullptr;
    const int rc = dlinfo(program, RTLD_DI_LINKMAP, &map);
    dlclose(program);
    return rc == 0 ? map : nullptr;
}

}  // namespace

bool is_startup_object(const void *address) {
    Dl_info info{};
    void *map = nullptr;
    if (dladdr1(address, &info, &map, RTLD_DL_LINKMAP) == 0 || map == nullptr) {
        return false;
    }
    const link_map *program = program_map();
    if (program == nullptr) {
        return false;
    }
    for (const link_map *startup : startup_maps(program)) {
        if (startup == map) {
            return true;
        }
    }
    return false;
}

}  // namespace aaaplatform
