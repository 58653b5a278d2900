# What a person types. CMake does the work; this file installs what is missing and names the steps.

BUILD   ?= build
JOBS    ?= $(shell nproc)
MEDIA   ?= examples/media
DEVICE  ?= $(BUILD)/device
CMAKE    = cmake -S . -G Ninja

.PHONY: help deps build test sync bench torture fuzz format check clean

help: ## Show the targets
	@grep -E '^[a-z]+: .*## ' $(MAKEFILE_LIST) | sed -E 's/:.*## /\t/' | expand -t 12

deps: ## Install what the build needs (Debian packages)
	@tools/install-dependencies.sh

build: deps ## Build the programs into build/bin
	@[ -f $(BUILD)/build.ninja ] || $(CMAKE) -B $(BUILD) -DORLITH_TESTS=OFF $(CMAKE_OPTIONS)
	@ninja -C $(BUILD) -j$(JOBS)

test: deps ## Build everything and run all tests
	@$(CMAKE) -B $(BUILD) -DORLITH_TESTS=ON $(CMAKE_OPTIONS) > /dev/null
	@ninja -C $(BUILD) -j$(JOBS)
	@ctest --test-dir $(BUILD) -j$(JOBS) --output-on-failure $(CTEST_OPTIONS)

sync: build ## Sync MEDIA=folder onto DEVICE=folder (default: the samples)
	@$(BUILD)/bin/orlith sync "$(MEDIA)" --device "$(DEVICE)"

bench: deps ## Run the benchmarks beside their peers (ROWS=, FILES=)
	@$(CMAKE) -B $(BUILD) -DORLITH_BENCH=ON $(CMAKE_OPTIONS) > /dev/null
	@ninja -C $(BUILD) -j$(JOBS)
	@bench/run.sh $(BUILD)

torture: build ## Kill, fill and deceive host and daemon for a while (SEED=)
	@tests/torture/run.py --build $(BUILD) $(if $(SEED),--seed $(SEED))

fuzz: deps ## Run every fuzz target (RUNS=1000000)
	@fuzz/run.sh $(or $(RUNS),1000000)

format: ## Format all code of ours
	@git ls-files '*.h' '*.cpp' | xargs clang-format -i

check: ## Look at formatting and layering without changing anything
	@tools/check.sh

clean: ## Remove what was built
	@rm -rf $(BUILD) build-*
