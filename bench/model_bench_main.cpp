#include "model_bench_main.h"

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <QCoreApplication>
#include <QSettings>

#include <cstdio>
#include <filesystem>

namespace murmela::bench {

int runModelBenchmarks(int argc, char** argv, const std::function<void()>& beforeRunning) {
    ::setenv("MURMELA_AUDIO", "none", 1);
    ::unsetenv("MURMELA_DEFAULTS_SUITE");
    char settings[] = "/tmp/murmela-bench-settings.XXXXXX";
    if (::mkdtemp(settings) == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }
    QCoreApplication application(argc, argv);
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, settings);
    if (beforeRunning) {
        beforeRunning();
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::filesystem::remove_all(settings);
    return 0;
}

}  // namespace murmela::bench
