#pragma once
// Feeds a synthetic sequence through the gesture pipeline and one detector,
// and reports the cycles in which the detector recognised its gesture.

#include <cstddef>
#include <vector>

#include "imu/gestures.h"
#include "support/gesture_sequences.h"

namespace imu::test {

struct Recognition {
    std::size_t frame;  // index of the cycle
    double t_s;         // time of the cycle in the sequence
    float first;
    float second;
};

// detector: any callable int(float*); its third value 1.0 counts.
template <class Detector>
std::vector<Recognition> replay(const GestureSequence& sequence, Detector&& detector) {
    std::vector<Recognition> seen;
    const auto& frames = sequence.frames();
    for (std::size_t i = 0; i < frames.size(); ++i) {
        GestureFrame f = frames[i];
        sfc_update_gesture(&f.imu, &f.out, f.dt_us);
        float slot[3] = {-1.0F, -1.0F, -1.0F};
        detector(slot);
        if (slot[2] == 1.0F) {
            seen.push_back({i, f.t_s, slot[0], slot[1]});
        }
    }
    return seen;
}

}  // namespace imu::test
