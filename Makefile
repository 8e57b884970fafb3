# Short names for the CMake presets. "make" leaves the optimised programs as ./vesk, ./vesk-uci
# and ./vesk-data.
# ARCH chooses the processor level (x86-64-v3, x86-64-v2, x86-64, native, generic); without it
# the highest that this machine can run is taken. WERROR=ON takes warnings for errors, DEBUG_INFO
# chooses what debug builds tell a debugger, UNITY=ON builds the tests sooner from nothing.
# TEST_JOBS tests run at a time.

ARCH ?= $(shell scripts/processor_level)
WERROR ?= OFF
DEBUG_INFO ?= -g
UNITY ?= OFF
JOBS ?= $(shell nproc)
TEST_JOBS ?= $(JOBS)
FUZZ_SECONDS ?= 60
TESTS ?= *
PREFIX ?= /usr/local
export DESTDIR

level = -DVESK_ARCH=$(ARCH)
build = cmake --preset $(1) -DVESK_WERROR=$(WERROR) -DVESK_DEBUG_INFO=$(DEBUG_INFO) $(2) && cmake --build --preset $(1) $(3) -j $(JOBS)

.PHONY: all exe vesk release native baseline clang test bench bench-book bench-scan bench-tune \
	sanitize asan tsan pgo ttune micro fuzz quick format tidy install uninstall deb clean

# "make EXE=name CC=g++" builds vesk-uci alone and leaves it under that name, as distributed test
# systems call it. CXX= does as well, and a C compiler's name stands for its sister's; without one
# CMake chooses. Each compiler has a folder of its own, as CMake keeps the one it has begun with.
ifeq ($(origin EXE),command line)
all: exe
is_said = $(filter-out default undefined,$(origin $(1)))
compiler := $(if $(call is_said,CXX),$(CXX),$(if $(call is_said,CC),$(CC)))
compiler := $(shell echo '$(compiler)' \
	| sed -E 's/clang(\+\+)?/clang++/; s/(^|[/-])gcc($$|-)/\1g++\2/; s/(^|\/)cc$$/\1c++/')
exe_folder := build/exe/$(ARCH)-$(or $(notdir $(compiler)),default)
else
all: vesk
endif

exe:
	cmake --preset release -B $(exe_folder) $(level) \
		$(if $(compiler),-DCMAKE_CXX_COMPILER='$(compiler)')
	cmake --build $(exe_folder) --target vesk-uci -j $(JOBS)
	cp -f $(exe_folder)/vesk-uci '$(EXE)'

vesk: release
	cp -f build/release/vesk vesk
	cp -f build/release/vesk-uci vesk-uci
	cp -f build/release/vesk-data vesk-data

release:
	$(call build,release,$(level))

native:
	$(call build,native)
	cp -f build/native/vesk vesk

baseline:
	$(call build,baseline)

clang:
	$(call build,clang,$(level))

test: release
	$(call build,debug,$(level) -DVESK_UNITY=$(UNITY))
	ctest --preset debug -j $(TEST_JOBS)

bench: vesk
	scripts/check_signature ./vesk

bench-book: vesk
	cmake --build --preset release --target random_games
	bench/book.py

bench-scan: vesk
	bench/scan.py

bench-tune: ttune
	cmake --build --preset tune --target training_lines
	bench/tune.py

sanitize: asan tsan

asan: release
	$(call build,asan,$(level))
	scripts/run_sanitized asan -j $(TEST_JOBS)

tsan: release
	$(call build,tsan,$(level))
	scripts/run_sanitized tsan -j $(TEST_JOBS)

# The counts of the first build steer the second. Neither may change a result.
pgo:
	rm -rf build/pgo
	$(call build,pgo-generate,$(level),--target vesk)
	build/pgo/vesk -d 12 -threads 1 -bench </dev/null
	$(call build,pgo-use,$(level),--target vesk)
	scripts/check_signature build/pgo/vesk
	cp -f build/pgo/vesk vesk

ttune:
	$(call build,tune,$(level))
	cp -f build/tune/vesk-tune vesk-tune

micro:
	$(call build,micro,$(level))
	build/micro/bench/vesk_micro

fuzz:
	$(call build,fuzz,$(level))
	scripts/run_fuzzers $(FUZZ_SECONDS)

# The inner loop: the unit tests of the debug build, or those that TESTS names.
quick:
	test -f build/debug/CMakeCache.txt || cmake --preset debug $(level)
	cmake --build build/debug --target vesk_tests -j $(JOBS)
	cd build/debug/tests/scratch && ../vesk_tests --gtest_brief=1 --gtest_filter='$(TESTS)'

format:
	scripts/check_format --fix

# Status 77 is a linter of another version.
tidy:
	cmake --preset debug -DVESK_WERROR=$(WERROR) $(level)
	scripts/check_tidy || [ $$? -eq 77 ]

# Installs what was built last, so that it need not be built again by root.
install:
	@test -x build/release/vesk-uci || $(MAKE) --no-print-directory release
	cmake --install build/release --prefix $(PREFIX)

# What the last "make install" wrote.
uninstall:
	sed "s|^|$$DESTDIR|" build/release/install_manifest.txt | tr '\n' '\0' | xargs -0 rm -f

deb:
	scripts/install_missing deb
	WERROR=$(WERROR) JOBS=$(JOBS) scripts/make_deb

clean:
	rm -rf build vesk vesk-uci vesk-data vesk-tune
