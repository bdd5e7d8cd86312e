// SPDX-License-Identifier: Apache-2.0
//
// The search through the objects that are loaded.

#include "loaded_objects.hpp"

#include <dlfcn.h>
#include <link.h>

#include <exception>
#include <string>
#include <vector>

namespace aaaplatform {

namespace {

// The loader calls back with its lock held, under which dlopen is not allowed:
// the names are collected first. The main program's name is empty.
int collect_name(dl_phdr_info *info, size_t, void *names) {
    try {
        static_cast<std::vector<std::string> *>(names)->emplace_back(info->dlpi_name);
    } catch (const std::exception &) {
        return 1;
    }
    return 0;
}

bool visit_in(const char *object, const char *name, SymbolVisitor visit, void *context) {
    const char *path = object != nullptr && *object != '\0' ? object : nullptr;
    void *handle = dlopen(path, RTLD_LAZY | RTLD_NOLOAD);
    if (handle == nullptr) {
        return false;
    }
    void *symbol = dlsym(handle, name);
    const bool done = symbol != nullptr && visit(symbol, context);
    dlclose(handle);
    return done;
}

}  // namespace

bool visit_symbol(const void *code_address, const char *name, SymbolVisitor visit, void *context) noexcept {
    Dl_info own;
    if (dladdr(code_address, &own) != 0 && visit_in(own.dli_fname, name, visit, context)) {
        return true;
    }
    std::vector<std::string> names;
    dl_iterate_phdr(collect_name, &names);
    for (const std::string &object : names) {
        if (visit_in(object.c_str(), name, visit, context)) {
            return true;
        }
    }
    return false;
}

}  // namespace aaaplatform
