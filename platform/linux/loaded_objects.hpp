// SPDX-License-Identifier: Apache-2.0
//
// Finds symbols in objects that are already loaded. It keeps no reference to an
// object: a reference from the platform, which is never unloaded, would prevent
// the library's unload. RTLD_DEFAULT and weak references create one, so neither is
// used.
//
// These functions take the loader's lock. Call them on the thread that loads the
// library, never on the library's worker.
#pragma once

namespace aaaplatform {

// Visits one symbol; returns true to end the search.
using SymbolVisitor = bool (*)(void *symbol, void *context);

// Visits the symbol of that name in the object that holds the code address
// (a return address) and, when that does not end the search, in every loaded
// object. Returns true when a visit ended the search.
bool visit_symbol(const void *code_address, const char *name, SymbolVisitor visit, void *context) noexcept;

}  // namespace aaaplatform
