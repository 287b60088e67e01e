#include "support/temp_root.h"

#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "imu/host.h"

namespace imu::test {
namespace {

int remove_entry(const char* path, const struct stat* /*sb*/, int /*flag*/, struct FTW* /*ftw*/) {
    ::chmod(path, 0700);
    return ::remove(path);
}

void make_dirs(const std::string& path) {
    std::string partial;
    std::stringstream parts(path);
    std::string part;
    while (std::getline(parts, part, '/')) {
        partial += part + "/";
        ::mkdir(partial.c_str(), 0755);
    }
}

}  // namespace

TempRoot::TempRoot() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern =
        std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/imu-test-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    dir_ = pattern;
    for (const char* sub : {"/data/system", "/data/velmo", "/dev/input", "/sys/class/input"}) {
        make_dirs(dir_ + sub);
    }
    imu_host_set_root(dir_.c_str());
}

TempRoot::~TempRoot() {
    imu_host_set_root(nullptr);
    ::nftw(dir_.c_str(), remove_entry, 16, FTW_DEPTH | FTW_PHYS);
}

std::string TempRoot::path(const std::string& rel) const { return dir_ + rel; }

bool TempRoot::exists(const std::string& rel) const {
    return ::access(path(rel).c_str(), F_OK) == 0;
}

void TempRoot::write(const std::string& rel, const std::string& content) const {
    std::ofstream out(path(rel), std::ios::binary | std::ios::trunc);
    out << content;
}

std::string TempRoot::read(const std::string& rel) const {
    std::ifstream in(path(rel), std::ios::binary);
    if (!in) {
        return "<missing>";
    }
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

void TempRoot::remove(const std::string& rel) const {
    ::nftw(path(rel).c_str(), remove_entry, 16, FTW_DEPTH | FTW_PHYS);
}

void TempRoot::mkdir(const std::string& rel) const { make_dirs(path(rel)); }

void TempRoot::make_input_device(const std::string& node, const std::string& name) const {
    ::mkfifo(path("/dev/input/" + node).c_str(), 0666);
    mkdir("/sys/class/input/" + node + "/device");
    write("/sys/class/input/" + node + "/device/name", name + "\n");
}

}  // namespace imu::test
