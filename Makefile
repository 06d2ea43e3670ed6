# A newcomer's two commands are `make demo` and `make test`; both install what is missing first.

QT ?= 6
PRESET := qt$(QT)
SHORT := $(filter short,$(BENCH))
SPACE := $() $()

.PHONY: help demo report-page demo-live test test-sanitize test-threads test-unsigned-char test-arm bench bench-live docs format format-check tidy clean

help:
	@echo "make demo            run a test against a board made of software and show what it received"
	@echo "make report-page     the demo, and a page of its report as the README shows it"
	@echo "make demo-live       the same in real time, on a virtual network with a stand-in relay (root)"
	@echo "make test            build and run all tests (QT=5 for Qt 5.15)"
	@echo "make test-sanitize   the same with AddressSanitizer and UndefinedBehaviorSanitizer"
	@echo "make test-threads    the tests where threads meet, with ThreadSanitizer"
	@echo "make test-unsigned-char  the same with plain char unsigned, as on ARM"
	@echo "make test-arm        cross-build for 32-bit ARM and run the tests under emulation"
	@echo "make bench           measure the engine against plain sockets, playing against plain libpcap"
	@echo "make bench-live      measure live sending on a virtual network (root)"
	@echo "                     (BENCH=short for both: does it run?)"
	@echo "make docs            HTML reference and manual in build/docs/html"
	@echo "make format          format the sources; format-check only looks"
	@echo "make tidy            static analysis with clang-tidy"

demo:
	scripts/setup.sh qt$(QT)
	cmake --preset $(PRESET)
	cmake --build --preset $(PRESET) --target lumtarctl lumtar-board
	scripts/demo.sh build/$(PRESET)

report-page: demo
	scripts/setup.sh test
	scripts/report-page.sh build/$(PRESET)

demo-live:
	scripts/setup.sh qt$(QT) live
	cmake --preset $(PRESET)
	cmake --build --preset $(PRESET) --target lumtarctl lumtar-board standinrelay
	scripts/demo-live.sh build/$(PRESET)

test:
	scripts/setup.sh qt$(QT) test live
	cmake --preset $(PRESET)
	cmake --build --preset $(PRESET)
	ctest --preset $(PRESET)

test-sanitize:
	scripts/setup.sh qt6 test live
	cmake --preset sanitize
	cmake --build --preset sanitize
	ctest --preset sanitize

# Where threads meet; the programs are started by the tests.
THREAD_TESTS := tst_queues tst_live tst_board

test-threads:
	scripts/setup.sh qt6 test live
	cmake --preset thread
	cmake --build --preset thread --target $(THREAD_TESTS) standinrelay lumtar-board lumtarctl
	ctest --preset thread -R '^($(subst $(SPACE),|,$(THREAD_TESTS)))$$'

test-unsigned-char:
	scripts/setup.sh qt6 test live
	cmake --preset unsigned-char
	cmake --build --preset unsigned-char
	ctest --preset unsigned-char

# The last step runs both programs, which tests cannot start under emulation.
test-arm:
	scripts/setup.sh qt6 test live arm
	scripts/arm-sysroot.sh build/sysroot-armhf
	cmake --preset armhf
	cmake --build --preset armhf
	ctest --preset armhf
	LUMTAR_LAUNCHER="qemu-arm -L build/sysroot-armhf" scripts/demo.sh build/armhf

bench:
	scripts/setup.sh qt6 bench
	cmake --preset bench
	cmake --build --preset bench
	build/bench/benchmarks/lumtar_benchmarks --benchmark_enable_random_interleaving=true \
		$(if $(SHORT),--benchmark_repetitions=3 --benchmark_min_time=0.01, \
		--benchmark_repetitions=21 --benchmark_min_time=0.1)

bench-live:
	scripts/setup.sh qt6 bench live
	cmake --preset bench
	cmake --build --preset bench --target lumtar_live_benchmark
	build/bench/benchmarks/lumtar_live_benchmark $(if $(SHORT),1)

MANUAL = docs README.md examples/README.md tools/wireshark/README.md benchmarks/README.md \
	CONTRIBUTING.md CHANGELOG.md
# What is installed.
PUBLIC_HEADERS = $(shell sed -n 's|^  \([a-z]*/.*\.h\)$$|\1|p' cmake/Install.cmake)

docs:
	scripts/setup.sh docs
	rm -rf build/docs
	mkdir -p build/docs
	{ cat docs/Doxyfile; echo INPUT = $(MANUAL) $(PUBLIC_HEADERS); } | doxygen -

SOURCES = $(shell git ls-files '*.cpp' '*.h')

format:
	scripts/setup.sh format
	clang-format -i $(SOURCES)

# Besides the formatter's part of the dialect, what clang-tidy has no check for.
ARITHMETIC = (std::)?(u?int[0-9]*(_t)?|q?u?int(8|16|32|64)|uint|uchar|bool|char|float|double|size_t|ptrdiff_t)
format-check:
	scripts/setup.sh format
	@clang-format --dry-run --Werror $(SOURCES)
	! git grep -nE 'static_cast<$(ARITHMETIC)>' -- '*.cpp' '*.h' # int(x)
	scripts/arrows.sh
	! git grep -nE '@(param|return|brief)|/\*\*' -- '*.cpp' '*.h' # \param, ///

tidy:
	scripts/setup.sh qt6 test bench format
	cmake --preset qt6
	cmake --build --preset qt6
	cmake --preset bench
	run-clang-tidy -p build/qt6 -quiet '^$(CURDIR)/(?!build/)'
	run-clang-tidy -p build/bench -quiet '^$(CURDIR)/benchmarks/'

clean:
	rm -rf build
