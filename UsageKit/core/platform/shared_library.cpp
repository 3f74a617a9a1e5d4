#include "core/platform/shared_library.h"

#include <dlfcn.h>

namespace usagekit {

SharedLibrary::SharedLibrary(const char* file, const char* purpose)
    : m_file(file), m_purpose(purpose) {
    // RTLD_LOCAL: the library's names do not leak into later lookups of other libraries.
    m_handle = ::dlopen(file, RTLD_NOW | RTLD_LOCAL);
    if (m_handle) return;
    const char* why = ::dlerror();
    m_problem = m_purpose + " need " + m_file + ", which could not be loaded (" +
                (why ? why : "not found") + ").";
}

void* SharedLibrary::address(const char* name) {
    if (!m_handle) return nullptr;
    ::dlerror();
    void* found = ::dlsym(m_handle, name);
    if (!found && m_problem.empty())
        m_problem = m_purpose + " need " + m_file + " with the function " + name +
                    ", which this copy lacks.";
    return found;
}

}  // namespace usagekit
