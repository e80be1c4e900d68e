"""Conan 2 recipe: conan create packaging/conan -o "&:locale=True"."""

import os
import re

from conan import ConanFile
from conan.tools.build import check_min_cppstd
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load

ROOT = os.path.join("..", "..")


class ZRAnalyticsRecipe(ConanFile):
    name = "zranalytics"
    description = "Analytics of mobile and desktop applications: events, sessions, batches."
    topics = ("analytics", "events", "sdk")
    package_type = "library"
    settings = "os", "compiler", "build_type", "arch"
    options = {"shared": [True, False], "transport": [True, False], "locale": [True, False]}
    default_options = {"shared": False, "transport": True, "locale": False}

    def set_version(self):
        header = load(self, os.path.join(self.recipe_folder, ROOT, "ZRAnalytics", "ZRVersion.h"))
        numbers = re.findall(r"^#define ZRANALYTICS_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", header, re.MULTILINE)
        self.version = ".".join(numbers)

    def export_sources(self):
        for pattern in ("CMakeLists.txt", "cmake/*", "Platform/*", "ZorvaneCore/*", "ZRAnalytics/*", "Stepping/*",
                        "Transport/*", "Locale/*"):
            copy(self, pattern, os.path.join(self.recipe_folder, ROOT), self.export_sources_folder)

    def requirements(self):
        if self.options.transport:
            self.requires("libcurl/[>=7.68 <9]")
        if self.options.locale:
            self.requires("icu/[>=70]")

    def validate(self):
        check_min_cppstd(self, 20)

    def layout(self):
        cmake_layout(self)

    def generate(self):
        toolchain = CMakeToolchain(self)
        toolchain.cache_variables["BUILD_SHARED_LIBS"] = bool(self.options.shared)
        toolchain.cache_variables["ZR_BUILD_TRANSPORT"] = bool(self.options.transport)
        toolchain.cache_variables["ZR_BUILD_LOCALE"] = bool(self.options.locale)
        toolchain.cache_variables["ZR_BUILD_C"] = False
        toolchain.cache_variables["ZR_BUILD_PROGRAMS"] = False
        toolchain.cache_variables["ZR_BUILD_TESTS"] = False
        toolchain.generate()
        CMakeDeps(self).generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()

    def package_info(self):
        # Consumers use the package's own CMake and pkg-config files.
        self.cpp_info.set_property("cmake_find_mode", "none")
        self.cpp_info.builddirs.append(os.path.join("lib", "cmake", "ZRAnalytics"))
        self.cpp_info.includedirs = [os.path.join("include", "zranalytics")]
        self.cpp_info.libs = ["zranalytics-curl"] if self.options.transport else []
        self.cpp_info.libs.append("zranalytics-cpp")
        if self.options.shared:
            self.cpp_info.defines = ["ZR_SHARED_LIBRARY"]
        else:
            self.cpp_info.libs += ["zranalytics-core", "zranalytics-platform"]
            self.cpp_info.system_libs = ["pthread"] if self.settings.os == "Linux" else []
