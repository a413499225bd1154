# Ember Tide thumbnails: the two commands of the quick start are `make demo` and `make test`.
# Everything else is a thin wrapper over the CMake presets.

SHELL := /bin/bash
# The tool's build needs BUILD_PACKAGES only; the tests and benchmarks add their frameworks.
BUILD_PACKAGES := cmake g++ pkg-config libjpeg62-turbo-dev libpng-dev libdeflate-dev \
                  libmd-dev libseccomp-dev
DEB_PACKAGES := $(BUILD_PACKAGES) libgtest-dev libbenchmark-dev zlib1g-dev
# Making and checking the Debian packages, and what their test looks at once they are installed.
PACKAGE_TOOLS := dpkg-dev file lintian shared-mime-info bash-completion python3-gi
FUZZ_PACKAGES := clang libclang-rt-14-dev
# What the desktop tests (label desktop) drive: GNOME's thumbnail factory and its sandbox, Xfce's
# tumbler on a private D-Bus session, and the MIME database's tools.
DESKTOP_PACKAGES := python3-gi gir1.2-gnomedesktop-3.0 bubblewrap shared-mime-info tumbler dbus
# KDE Frameworks' KIO for kde/, and kio-extras' thumbnail worker for its test. Both lists go in
# without recommends: KIO's would bring in Plasma's system settings.
KDE_PACKAGES := libkf5kio-dev extra-cmake-modules qtbase5-dev kio-extras shared-mime-info
JOBS ?= $(shell nproc 2>/dev/null || echo 2)

.PHONY: deps deps-desktop deps-kde deps-test deps-fuzz build release test demo asan asan-test bench fuzz-smoke fuzz clean format

# Installs the Debian packages that are missing (as root), or says how to (and fails, unless
# DEPS_OPTIONAL is set: what is then missing only makes some tests skip).
deps:
	@missing=$$(for p in $(DEB_PACKAGES); do dpkg-query -W -f='$${Status}\n' $$p 2>/dev/null | grep -q 'ok installed' || echo $$p; done); \
	if [ -n "$$missing" ]; then \
	  if [ "$$(id -u)" = 0 ]; then \
	    echo "Installing:" $$missing; \
	    apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $(APT_OPTIONS) $$missing; \
	  else \
	    echo "Missing packages. Run: sudo apt-get install $(APT_OPTIONS) $$missing"; \
	    [ -n "$(DEPS_OPTIONAL)" ] || exit 1; \
	  fi; \
	fi

deps-desktop:
	@$(MAKE) --no-print-directory deps DEB_PACKAGES="$(DESKTOP_PACKAGES)" APT_OPTIONS=--no-install-recommends

deps-kde:
	@$(MAKE) --no-print-directory deps DEB_PACKAGES="$(KDE_PACKAGES)" APT_OPTIONS=--no-install-recommends

# `make test` runs the desktop tests too: as root it installs what they drive; otherwise it names
# what is missing, and those tests report themselves skipped.
deps-test:
	@$(MAKE) --no-print-directory deps DEB_PACKAGES="$(DESKTOP_PACKAGES) $(KDE_PACKAGES)" \
	  APT_OPTIONS=--no-install-recommends DEPS_OPTIONAL=1

deps-fuzz:
	@$(MAKE) --no-print-directory deps DEB_PACKAGES="$(FUZZ_PACKAGES)"

# The Linux check of the macOS sources (tests/apple-headers/syntax-check.sh): clang against
# GNUstep's Foundation headers, and python3 for the check of the bundle descriptions. The build's
# own packages (deps) are needed too: the check generates the Apple branch of CMakeLists.txt.
.PHONY: deps-apple-check apple-syntax-check
deps-apple-check:
	@$(MAKE) --no-print-directory deps DEB_PACKAGES="clang libgnustep-base-dev python3"

apple-syntax-check: deps deps-apple-check
	@bash tests/apple-headers/syntax-check.sh

build: deps
	cmake --preset dev >/dev/null
	cmake --build --preset dev -j $(JOBS)

release: deps
	cmake --preset release >/dev/null
	cmake --build --preset release -j $(JOBS)

# The build comes after the desktop's packages, so that it finds KDE Frameworks for kde/. Skipped
# tests are named with their reasons at the end, whatever the outcome; NO_SKIPS=1 (CI) makes a
# skip fail the run.
test: deps-test
	@$(MAKE) --no-print-directory build
	@status=0; ctest --preset dev --output-junit ctest-junit.xml || status=$$?; \
	bash tools/skipped-tests.sh $(if $(NO_SKIPS),--fail) build/dev/ctest-junit.xml || status=1; \
	exit $$status

demo: release
	@bash tools/demo.sh build/release

asan: deps
	cmake --preset asan >/dev/null
	cmake --build --preset asan -j $(JOBS)

asan-test: asan
	ctest --preset asan

# The benchmarks are built in the release folder, the only build that turns them on.
bench: deps
	cmake --preset release -DET_BUILD_BENCH=ON >/dev/null
	cmake --build --preset release -j $(JOBS)
	@bash bench/run.sh build/release

fuzz-smoke: deps deps-fuzz
	cmake --preset fuzz >/dev/null
	cmake --build --preset fuzz -j $(JOBS)
	@bash fuzz/smoke.sh build/fuzz $${FUZZ_SECONDS:-30}

# Line, function and branch coverage by the tests that `make test` runs (the desktop ones aside),
# generated tables excluded: of src/ alone (the figure the README quotes), then of src/ and tools/
# together (the confined commands write their counts too, Confinement.cpp). gcovr 5.2 needs
# --gcov-ignore-parse-errors for the negative branch counts that threads leave.
.PHONY: deps-coverage coverage
deps-coverage:
	@$(MAKE) --no-print-directory deps DEB_PACKAGES="gcovr"

GCOVR := gcovr --root . --object-directory build/coverage build/coverage --exclude '.*Tables\.inc$$' \
         --gcov-ignore-parse-errors --print-summary

coverage: deps deps-coverage
	cmake --preset coverage >/dev/null
	cmake --build --preset coverage -j $(JOBS)
	find build/coverage -name '*.gcda' -delete
	ctest --preset coverage
	@echo "src/:"
	@$(GCOVR) --filter 'src/' --txt build/coverage/coverage.txt | tail -n 3
	@echo "src/ and tools/:"
	@$(GCOVR) --filter 'src/' --filter 'tools/' --txt build/coverage/coverage-tools.txt | tail -n 3

# A long campaign: FUZZ_SECONDS per target (default 600), on a corpus kept in build/fuzz-corpus.
fuzz: deps deps-fuzz
	cmake --preset fuzz >/dev/null
	cmake --build --preset fuzz -j $(JOBS)
	@bash fuzz/campaign.sh build/fuzz $${FUZZ_SECONDS:-600}

# Debian packages in build/package (ember-tide, and ember-tide-kde where the KDE plug-in is
# built), compiled with Debian's hardening flags, then checked by lintian. Their test, which
# installs them on this machine, is `ctest --preset package` (CI runs it as root).
.PHONY: deps-package package
deps-package:
	@$(MAKE) --no-print-directory deps DEB_PACKAGES="$(PACKAGE_TOOLS)"

package:
	@$(MAKE) --no-print-directory deps DEB_PACKAGES="$(BUILD_PACKAGES) $(PACKAGE_TOOLS)"
	cmake --preset package \
	  -DCMAKE_C_FLAGS="$$(dpkg-buildflags --get CFLAGS) $$(dpkg-buildflags --get CPPFLAGS)" \
	  -DCMAKE_CXX_FLAGS="$$(dpkg-buildflags --get CXXFLAGS) $$(dpkg-buildflags --get CPPFLAGS)" \
	  -DCMAKE_EXE_LINKER_FLAGS="$$(dpkg-buildflags --get LDFLAGS)" \
	  -DCMAKE_MODULE_LINKER_FLAGS="$$(dpkg-buildflags --get LDFLAGS)" >/dev/null
	cmake --build --preset package -j $(JOBS)
	rm -f build/package/*.deb
	cd build/package && cpack -G DEB
	lintian --fail-on error build/package/*.deb

format:
	clang-format -i $$(git ls-files '*.h' '*.cpp' '*.mm')

clean:
	rm -rf build
