# Thin wrapper over CMake. `make test` and `make run` are the two commands of the README.
.PHONY: deps test run demo bench bench-desktop release format clean

TEST_DIR    := build/test
RELEASE_DIR := build/release
JOBS        ?= $(shell nproc 2>/dev/null || echo 2)

deps:
	@bash scripts/install-deps.sh

# Everything, under AddressSanitizer and UndefinedBehaviorSanitizer, warnings fatal.
test: deps
	@cmake -S . -B $(TEST_DIR) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DTALLY_SANITIZE=ON -DTALLY_WERROR=ON >/dev/null
	@cmake --build $(TEST_DIR) -j $(JOBS)
	@cd $(TEST_DIR) && ctest --output-on-failure -j $(JOBS)

release: deps
	@cmake -S . -B $(RELEASE_DIR) -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
	@cmake --build $(RELEASE_DIR) -j $(JOBS) --target tally

# Tally's main job on this machine's own logs: the desktop app where there is a display
# (tally exits 1 when it finds none), else the terminal summary.
run: release
	@if [ -n "$$DISPLAY$$WAYLAND_DISPLAY" ]; then \
		echo "Starting the Tally desktop app: its icon is in your tray, the dashboard opens."; \
		echo "Quit from the tray menu; \`$(RELEASE_DIR)/Tally/tally --scan\` prints the summary instead."; \
		$(RELEASE_DIR)/Tally/tally || { [ $$? -eq 1 ] && $(RELEASE_DIR)/Tally/tally --scan; }; \
	else \
		echo "No display here: running \`tally --scan\` (the desktop app needs one)."; \
		$(RELEASE_DIR)/Tally/tally --scan; \
	fi

# A small made-up home with logs of every local tool, so Tally can be seen at work on a
# machine that has none. Your own state is not touched.
demo: deps
	@cmake -S . -B $(RELEASE_DIR) -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
	@cmake --build $(RELEASE_DIR) -j $(JOBS) --target tally make_corpus
	@$(RELEASE_DIR)/bench/make_corpus --out build/demo --megabytes 4 --files 40 --seed 7
	@rm -rf build/demo/support
	@HOME=$(CURDIR)/build/demo/home TALLY_SUPPORT_DIR=$(CURDIR)/build/demo/support \
		$(RELEASE_DIR)/Tally/tally --scan

# The scan benchmark on two 1 GB, 3,000-file homes, generated once and kept in the build
# tree: one model per session (about one record per log) with half of the Codex rollouts
# compressed, as Codex leaves week-old ones; then sessions that switch among four models
# (about four records per log).
BENCH_CORPUS := $(RELEASE_DIR)/bench-corpus-zst
BENCH_CORPUS_MANY := $(RELEASE_DIR)/bench-corpus-many
bench: deps
	@cmake -S . -B $(RELEASE_DIR) -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
	@cmake --build $(RELEASE_DIR) -j $(JOBS) --target make_corpus scan_bench
	@test -d $(BENCH_CORPUS)/home || $(RELEASE_DIR)/bench/make_corpus --out $(BENCH_CORPUS) --megabytes 1024 --files 3000 --seed 1 --compressed-codex 50
	@test -d $(BENCH_CORPUS_MANY)/home || $(RELEASE_DIR)/bench/make_corpus --out $(BENCH_CORPUS_MANY) --megabytes 1024 --files 3000 --seed 1 --profile many-models
	@$(RELEASE_DIR)/bench/scan_bench --home $(BENCH_CORPUS)/home --runs 5
	@$(RELEASE_DIR)/bench/scan_bench --home $(BENCH_CORPUS_MANY)/home --runs 5

# The desktop app on the same corpus: tray start-up, GUI-thread stalls, idle wake-ups and
# memory, under a virtual display and a private session bus.
bench-desktop: bench
	@cmake --build $(RELEASE_DIR) -j $(JOBS) --target desktop_bench
	@xvfb-run -a -s "-screen 0 1280x800x24" dbus-run-session -- \
		$(RELEASE_DIR)/bench/desktop_bench --home $(BENCH_CORPUS)/home --runs 5

format:
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

# Fails, naming each place, when a tracked C++ file is not as `make format` would leave it.
.PHONY: format-check
format-check: deps
	@git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror

clean:
	rm -rf build

.PHONY: install uninstall deb

DEB_DIR := build/deb
PREFIX  ?= /usr/local

# The executable, desktop entry, icons, manual page and completions under $(PREFIX)
# (`make install PREFIX=~/.local`; a system prefix needs sudo). The prefix is configured,
# not only passed to the install: the zsh completion goes where that prefix's zsh looks.
install: deps
	@cmake -S . -B $(RELEASE_DIR) -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=$(PREFIX) >/dev/null
	@cmake --build $(RELEASE_DIR) -j $(JOBS) --target tally tally_data
	@cmake --install $(RELEASE_DIR)

# Removes every file the last `make install` put down ($(RELEASE_DIR)/install_manifest.txt).
uninstall:
	@bash scripts/uninstall.sh $(RELEASE_DIR)

# A Debian package for /usr, without tests or benchmark: build/deb/tally_<version>_<arch>.deb.
# Compiled with Debian's hardening flags (stack protector, fortified functions, read-only
# relocations, immediate binding), as Debian's own packages are.
DEB_FLAGS := DEB_BUILD_MAINT_OPTIONS=hardening=+all dpkg-buildflags --get
deb: deps
	@cmake -S . -B $(DEB_DIR) -G Ninja -DCMAKE_BUILD_TYPE=Release -DTALLY_DEVELOPER=OFF -DCMAKE_INSTALL_PREFIX=/usr \
		-DCMAKE_CXX_FLAGS="$$($(DEB_FLAGS) CPPFLAGS) $$($(DEB_FLAGS) CXXFLAGS)" \
		-DCMAKE_EXE_LINKER_FLAGS="$$($(DEB_FLAGS) LDFLAGS)" \
		-DCMAKE_MODULE_LINKER_FLAGS="$$($(DEB_FLAGS) LDFLAGS)" >/dev/null
	@cmake --build $(DEB_DIR) -j $(JOBS)
	@cd $(DEB_DIR) && cpack -G DEB >/dev/null
	@ls $(DEB_DIR)/*.deb
