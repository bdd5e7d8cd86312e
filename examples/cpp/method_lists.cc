// SPDX-License-Identifier: Apache-2.0
//
// Shows which methods answer logins, and the server groups among them, from the system
// database. Without a database, or without the list, it says so.
//
//     c++ -std=c++20 method_lists.cc $(pkg-config --cflags --libs aaautil-cpp)
//     ./a.out [PATH...]           such as authentication/login/default

#include <aaa/aaautil.hpp>
#include <cstdio>

namespace {

void show(const char *path) {
    const aaa::result<aaa::methods> methods = aaa::get_methods(path);
    if (!methods) {
        std::printf("%s: %s\n", path, methods.error().message().c_str());
        return;
    }
    std::printf("%s:", path);
    for (const aaa::method_id method : *methods) {
        const aaa::c_string name = aaa::method_name(method);  // of a group: from the database
        std::printf(" %s", name ? name.c_str() : name_of(method).data());
    }
    std::puts(methods->empty() ? " no methods" : "");
}

}  // namespace

int main(int argc, char **argv) {
    for (int i = 1; i < argc; ++i) {
        show(argv[i]);
    }
    if (argc < 2) {
        for (const char *const path :
             {"authentication/login/default", "authentication/ppp/default", "accounting/exec/default"}) {
            show(path);
        }
    }
    return 0;
}
