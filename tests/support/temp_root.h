#pragma once
// A fresh folder that stands in for the phone's file system: the library's
// fixed paths (/data/system, /data/velmo, /dev/input, /sys/class/input) are
// looked up under it while the object lives.

#include <string>

namespace imu::test {

class TempRoot {
public:
    TempRoot();   // creates the folder and its data/system, data/velmo,
                  // dev/input and sys/class/input, and makes it the root
    ~TempRoot();  // restores the real paths and removes the folder
    TempRoot(const TempRoot&) = delete;
    TempRoot& operator=(const TempRoot&) = delete;

    const std::string& dir() const { return dir_; }
    // The absolute path of rel ("/data/system/velmoGR.ini") under the root.
    std::string path(const std::string& rel) const;
    bool exists(const std::string& rel) const;
    void write(const std::string& rel, const std::string& content) const;
    // The whole file, or "<missing>" when it cannot be read.
    std::string read(const std::string& rel) const;
    void remove(const std::string& rel) const;
    void mkdir(const std::string& rel) const;
    // A FIFO at /dev/input/<node> named <name> through
    // /sys/class/input/<node>/device/name, as the host device lookup reads it.
    void make_input_device(const std::string& node, const std::string& name) const;

private:
    std::string dir_;
};

}  // namespace imu::test
