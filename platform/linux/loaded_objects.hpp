// SPDX-License-Identifier: Apache-2.0
//
// Finds symbols in objects that are loaded already. No reference to an object
// is kept afterwards: a reference from here, which is never unloaded, would
// keep the library from being unloaded too. RTLD_DEFAULT and weak references
// leave such a reference behind, so neither is used.
//
// These functions take the loader's lock. Call them on a thread that is
// loading the library, never on the library's worker.
#pragma once

namespace aaaplatform {

// Takes a look at one symbol; returns true to end the search.
using SymbolVisitor = bool (*)(void *symbol, void *context);

// Visits the symbol of that name in the object that holds the code address
// (a return address) and, when that does not end the search, in every loaded
// object. Returns true when a visit ended the search.
bool visit_symbol(const void *code_address, const char *name, SymbolVisitor visit, void *context) noexcept;

}  // namespace aaaplatform
