// libimu.so exports exactly its public names.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

std::set<std::string> read_names(const char* file) {
    std::ifstream in(file);
    std::set<std::string> names;
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line[0] != '#') {
            names.insert(line);
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
        const auto second_space = line.find(' ', line.find(' ') + 1);  // "<address> <kind> <name>"
        if (second_space != std::string::npos) {
            out.push_back(line.substr(second_space + 1));
        }
    }
    return out;
}

// Members of the library's public classes may be exported, and the linker's
// and sanitizers' symbols that every shared object carries.
bool is_allowed_extra(const std::string& plain, const std::string& demangled) {
    for (const char* c : {"velmo_mouse_obj", "zoom_angle_obj", "zoom_in_out_obj",
                          "sfc_gesture_trigger", "daemond_data_service", "calibrator_data_service",
                          "touch_service", "VelmoBaseEvent"}) {
        const std::string cls(c);
        if (demangled.rfind(cls + "::", 0) == 0 || demangled == "typeinfo for " + cls ||
            demangled == "typeinfo name for " + cls || demangled == "vtable for " + cls) {
            return true;
        }
    }
    for (const char* p : {"__asan", "__odr_asan", "__ubsan", "__tsan", "__sanitizer", "__bss_start",
                          "_edata", "_end", "_init", "_fini"}) {
        if (plain.rfind(p, 0) == 0) {
            return true;
        }
    }
    return false;
}

TEST(Exports, EveryBuiltNameResolvesAndPendingNamesDoNot) {
    void* handle = dlopen(IMU_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle, nullptr) << dlerror();
    const auto pending = read_names(IMU_PENDING_FILE);
    const auto names = read_names(IMU_EXPORTS_FILE);
    ASSERT_GT(names.size(), 100U);
    for (const std::string& name : names) {
        const bool found = dlsym(handle, name.c_str()) != nullptr;
        EXPECT_EQ(found, pending.count(name) == 0)
            << name << (found ? " resolves but is listed as pending" : " does not resolve");
    }
    for (const std::string& name : pending) {
        EXPECT_EQ(names.count(name), 1U) << name << " is pending but not an export";
    }
    dlclose(handle);
}

TEST(Exports, NothingElseIsExported) {
    const auto allowed = read_names(IMU_EXPORTS_FILE);
    const auto plain = defined_symbols(false);
    const auto demangled = defined_symbols(true);
    ASSERT_EQ(plain.size(), demangled.size());
    ASSERT_FALSE(plain.empty()) << "nm found no symbols in " << IMU_LIBRARY_PATH;
    for (size_t i = 0; i < plain.size(); ++i) {
        EXPECT_TRUE(allowed.count(plain[i]) != 0 || is_allowed_extra(plain[i], demangled[i]))
            << "unexpected export: " << demangled[i] << " (" << plain[i] << ")";
    }
}

}  // namespace
