// libimu.so exports exactly its public names.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

std::vector<std::string> read_names(const char* file) {
    std::ifstream in(file);
    std::vector<std::string> names;
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line[0] != '#') {
            names.push_back(line);
        }
    }
    return names;
}

// The dynamic symbols the library defines, as "name" or demangled (-C).
std::vector<std::string> defined_symbols(bool demangle) {
    const std::string cmd = std::string("nm -D --defined-only ") + (demangle ? "-C " : "") +
                            IMU_LIBRARY_PATH + " 2>/dev/null";
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(cmd.c_str(), "r"), pclose);
    std::vector<std::string> out;
    std::array<char, 4096> buf{};
    while (pipe != nullptr && fgets(buf.data(), buf.size(), pipe.get()) != nullptr) {
        std::string line(buf.data());
        line.erase(line.find_last_not_of('\n') + 1);
        // "<address> <kind> <name>"
        const auto second_space = line.find(' ', line.find(' ') + 1);
        if (second_space != std::string::npos) {
            out.push_back(line.substr(second_space + 1));
        }
    }
    return out;
}

bool starts_with(const std::string& s, const std::string& prefix) {
    return s.compare(0, prefix.size(), prefix) == 0;
}

// Members of the library's public classes may be exported too.
bool is_public_class_member(const std::string& demangled) {
    static const char* const kClasses[] = {
        "velmo_mouse_obj",      "zoom_angle_obj",          "zoom_in_out_obj", "sfc_gesture_trigger",
        "daemond_data_service", "calibrator_data_service", "touch_service",   "VelmoBaseEvent",
    };
    for (const char* c : kClasses) {
        const std::string cls(c);
        if (starts_with(demangled, cls + "::") || demangled == "typeinfo for " + cls ||
            demangled == "typeinfo name for " + cls || demangled == "vtable for " + cls) {
            return true;
        }
    }
    return false;
}

// Linker and sanitizer runtime symbols that every shared object carries.
bool is_toolchain_symbol(const std::string& name) {
    static const char* const kPrefixes[] = {"__asan",      "__odr_asan",  "__ubsan", "__tsan",
                                            "__sanitizer", "__bss_start", "_edata",  "_end",
                                            "_init",       "_fini"};
    for (const char* p : kPrefixes) {
        if (starts_with(name, p)) {
            return true;
        }
    }
    return false;
}

class Exports : public testing::Test {
protected:
    void SetUp() override {
        handle_ = dlopen(IMU_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(handle_, nullptr) << dlerror();
    }
    void TearDown() override {
        if (handle_ != nullptr) {
            dlclose(handle_);
        }
    }
    void* handle_ = nullptr;
};

TEST_F(Exports, EveryBuiltNameResolvesAndPendingNamesDoNot) {
    const auto pending_list = read_names(IMU_PENDING_FILE);
    const std::set<std::string> pending(pending_list.begin(), pending_list.end());
    const auto names = read_names(IMU_EXPORTS_FILE);
    ASSERT_GT(names.size(), 100U);
    for (const std::string& name : names) {
        const bool found = dlsym(handle_, name.c_str()) != nullptr;
        EXPECT_EQ(found, pending.count(name) == 0)
            << name << (found ? " resolves but is listed as pending" : " does not resolve");
    }
    for (const std::string& name : pending) {
        EXPECT_TRUE(std::find(names.begin(), names.end(), name) != names.end())
            << name << " is pending but not an export";
    }
}

TEST_F(Exports, NothingElseIsExported) {
    const auto list = read_names(IMU_EXPORTS_FILE);
    const std::set<std::string> allowed(list.begin(), list.end());
    const auto plain = defined_symbols(false);
    const auto demangled = defined_symbols(true);
    ASSERT_EQ(plain.size(), demangled.size());
    ASSERT_FALSE(plain.empty()) << "nm found no symbols in " << IMU_LIBRARY_PATH;
    for (size_t i = 0; i < plain.size(); ++i) {
        const bool ok = allowed.count(plain[i]) != 0 || is_public_class_member(demangled[i]) ||
                        is_toolchain_symbol(plain[i]);
        EXPECT_TRUE(ok) << "unexpected export: " << demangled[i] << " (" << plain[i] << ")";
    }
}

}  // namespace
