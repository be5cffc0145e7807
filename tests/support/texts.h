// Records as short texts, to be compared in tests and shown where a comparison fails.
#pragma once

#include "trkapi/trkapi.h"

#include <sstream>
#include <string>
#include <type_traits>

namespace trk_test {

// " name=value" of each number that does not read its default: the last letter of its name, where "x" stands for a
// missing value and "-" for an absent one.
template <class Number> std::string named(const Number *numbers, const std::string &names) {
    std::istringstream in(names);
    std::ostringstream out;
    for (std::string name; in >> name; ++numbers) {
        const float absent = std::is_same_v<Number, float> ? TRK_FIELD_ABSENT : TRK_WORD_ABSENT;
        const char usual = name.back();
        if (static_cast<float>(*numbers) != (usual == 'x' ? MISSING_DATA : usual == '-' ? absent : 0)) {
            out << ' ' << name.substr(0, name.size() - 1) << '=' << *numbers;
        }
    }
    return out.str();
}

inline std::string textOf(const FSAMPLE_REC &sample) {
    return std::to_string(sample.time) +
           named(sample.pupil_x, "px- px- py- py- hx- hx- hy- hy- ps0 ps0 gx- gx- gy- gy- rxx ryx") +
           named(sample.gaze_vel_x, "vx vx vx vx vx vx vx vx vx vx vx vx vx vx vx vx vx vx vx vx vx vx vx vx") +
           named(sample.ext_data, "e0 e0 e0 e0 e0 e0 e0 e0 flags0 in- buttons0 type- status-");
}

// Code, eye, times, read flags, the rest; sgx is start_gaze_x.
inline std::string textOf(const FEVENT &event) {
    std::ostringstream out;
    out << event.type << (event.eye == 1 ? "R " : "L ") << event.start_time << '-' << event.end_time << std::hex
        << ' ' << event.read_flags << named(&event.start_href_x, "shx0 shy0 sgx0 sgy0 sp0 ehx0 ehy0 egx0 egy0 ep0")
        << named(&event.avg_href_x, "ahx0 ahy0 agx0 agy0 ap0 av0 pv0 sv0 ev0 srx0 erx0 sry0 ery0")
        << named(&event.spare_word, "spare0 status0 aux0 auxx0 parse0");
    const TRK_MESSAGE *const message = event.message;
    return out.str() + (message != nullptr ? " '" + std::string(message->text, message->length) + "'" : "");
}

// "+" for a start, "-" for an end; time and rate; type, eye, position type, pupil mode, recording mode and filter
// level; what samples and events hold; the gaze divisor.
inline std::string textOf(const FRECORDING &block) {
    std::ostringstream out;
    out << (block.state == TRK_BLOCK_START ? '+' : '-') << block.time << '@' << block.sample_rate << ' ';
    for (const int field : {block.record_type, block.eye, block.pos_type, block.pupil_mode, block.recording_mode,
                            block.filter_level}) {
        out << field;
    }
    out << std::hex << ' ' << block.sample_content_flags << ' ' << block.event_content_flags << std::dec;
    out << " /" << block.gaze_prescaler;
    return out.str();
}

} // namespace trk_test
