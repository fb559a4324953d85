"""Recipe for Conan 2: conan create packaging/conan"""
import os
import re

from conan import ConanFile
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load
from conan.tools.gnu import PkgConfigDeps


class ZqcoreRecipe(ConanFile):
    name = "zqcore"
    description = "Foundation library of a real-time game engine"
    package_type = "library"
    settings = "os", "arch", "compiler", "build_type"
    options = {"shared": [True, False], "tools": [True, False], "zip": [True, False]}
    default_options = {"shared": True, "tools": False, "zip": False}

    def set_version(self):
        text = load(self, os.path.join(self.recipe_folder, "../../zqcore/cversion.h"))
        parts = [re.search(rf"#define ZQCORE_VERSION_{part} (\d+)", text)[1] for part in ("MAJOR", "MINOR", "PATCH")]
        self.version = ".".join(parts)

    def export_sources(self):
        root = os.path.join(self.recipe_folder, "../..")
        for folder in ("cmake", "docs", "examples", "platform", "tools", "zip", "zqcore"):
            copy(self, f"{folder}/*", root, self.export_sources_folder)
        for file in ("CMakeLists.txt", "README.md", "CHANGELOG.md"):
            copy(self, file, root, self.export_sources_folder)

    def requirements(self):
        if self.options.tools:
            self.requires("cli11/2.3.2")
            self.requires("nlohmann_json/3.11.3")
        if self.options.zip:
            self.requires("libzip/1.10.1")
            self.requires("zlib/1.3.1")

    def layout(self):
        cmake_layout(self)

    def generate(self):
        toolchain = CMakeToolchain(self)
        toolchain.variables["ZQCORE_TESTS"] = False
        toolchain.variables["ZQCORE_EXAMPLES"] = False
        toolchain.variables["ZQCORE_TOOLS"] = bool(self.options.tools)
        toolchain.variables["ZQCORE_ZIP"] = bool(self.options.zip)
        toolchain.generate()
        CMakeDeps(self).generate()
        PkgConfigDeps(self).generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()

    def package_info(self):
        # The package brings a CMake package of its own, which has the forms shared, ship, static and checked.
        self.cpp_info.set_property("cmake_find_mode", "none")
        self.cpp_info.builddirs = [os.path.join("lib", "cmake", "zqcore")]
        self.cpp_info.libs = ["zqcore"]
        self.cpp_info.includedirs = [os.path.join("include", "zqcore")]
        self.cpp_info.system_libs = ["pthread", "dl"]
