# `make deb`: a Debian package of what the install rules put under /usr. Its runtime
# dependencies are the libraries dpkg-shlibdeps finds the installed binaries linked against.
set(TALLY_MAINTAINER "Tally developers <maintainers@tally.app>"
    CACHE STRING "Maintainer named in the Debian package")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tally)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "Tally developers")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${TALLY_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# libcurl and libsecret are opened when a command first needs them, not linked, so
# dpkg-shlibdeps cannot see them: name them here.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libcurl4, libsecret-1-0")
# The first line is the synopsis; CPack indents the rest and marks the empty line.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "tokens and cost of your AI coding tools
Tally tells you how many tokens your AI coding tools used and what that work
cost, or would have cost. It reads what the coding agents leave on your
machine (Claude Code, Codex CLI, Grok CLI, Gemini CLI, OpenCode, GitHub
Copilot), prices every request per model, and sums it for today, this month
and all time.

Money billed per token and the API-equivalent value of subscription seats are
kept apart. Tally runs as a tray app with a dashboard, or as the tally command
in a terminal.")

include(CPack)
