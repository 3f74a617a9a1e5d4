// A shared library opened when a command first needs it (dlopen) rather than when the
// process starts, and the functions taken from it (dlsym). A local scan thus never loads
// what only remote accounts or the keyring use.
//
// Meant to be built once, inside a function-local static (which makes the first use from
// any thread the only one that loads). The library is never closed: the functions found
// stay valid, from any thread, for the life of the process.
#pragma once

#include <string>

namespace usagekit {

class SharedLibrary {
  public:
    // `file` is the library's versioned name ("libcurl.so.4"); `purpose` says what needs it
    // ("Remote accounts"), to begin the problem text with.
    SharedLibrary(const char* file, const char* purpose);
    SharedLibrary(const SharedLibrary&) = delete;
    SharedLibrary& operator=(const SharedLibrary&) = delete;

    // Points `slot` at the function `name`; nullptr when the library or the function is
    // missing, which problem() then tells.
    template <class Function>
    void find(Function*& slot, const char* name) {
        slot = reinterpret_cast<Function*>(address(name));
    }

    // Empty when the library and every function asked for were found; otherwise one
    // sentence for the user naming the first one that was missing.
    const std::string& problem() const { return m_problem; }

    // A table of functions (a struct of function pointers) that `fill(library, table)` finds
    // in `file`, with the problem text when any is missing.
    template <class Table>
    struct Loaded {
        Table functions{};
        std::string problem;
    };
    template <class Table, class Fill>
    static Loaded<Table> load(const char* file, const char* purpose, Fill fill) {
        SharedLibrary library(file, purpose);
        Loaded<Table> loaded;
        fill(library, loaded.functions);
        loaded.problem = library.problem();
        return loaded;
    }

  private:
    void* address(const char* name);

    void* m_handle = nullptr;
    std::string m_file;
    std::string m_purpose;
    std::string m_problem;
};

}  // namespace usagekit
