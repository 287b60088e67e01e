#pragma once
// Command line of imu-replay and the folder that stands in for the phone's
// file system while it runs.

#include <string>
#include <vector>

#include "recording.h"

namespace imu::replay {

struct Options {
    std::string input;  // "" = the demo recording
    Layout layout = Layout::kAuto;
    Units units;
    std::vector<int> enable;
    std::vector<int> out_slots;
    int mode = 0;
    std::string root;    // "" = a fresh temporary folder
    std::string output;  // "" = none, "-" = stdout
    std::string plot;    // "" = none (the demo's plot goes next to it)
    double settle_s = 2.0;
    bool progress = true;
    bool log = false;
    bool help = false;
};

// Parses the arguments (without the program name). Returns "" or the error.
std::string parse_options(const std::vector<std::string>& args, Options& o);

const char* usage();

// The bundled demo recording: in the source tree the program was built
// from, else in the installed share folder. "" if neither exists.
std::string find_demo();

// The plot path next to a recording: its name with .png for its extension.
std::string plot_next_to(const std::string& recording);

// Makes dir (and its parents) and the library's folders under it:
// data/system, data/velmo, dev/input, sys/class/input. Returns "" or the error.
std::string prepare_root(const std::string& dir);
// A fresh folder under the temporary directory, prepared as above; "" on failure.
std::string make_temp_root();
// Removes a folder and everything in it.
void remove_tree(const std::string& dir);

}  // namespace imu::replay
