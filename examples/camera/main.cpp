// Inspects the frames of a camera while they come:
//   camera OUTPUT_DIRECTORY [FRAMES [GSTREAMER-ELEMENTS]]
// FRAMES is 100 unless given; the elements are those of gst-launch-1.0, a moving test picture unless
// given: "v4l2src device=/dev/video0" is a camera. Prints a line a second; results go to
// OUTPUT_DIRECTORY/camera.tnr, every tenth frame's darkest and brightest region to a JPEG file.

#include <cstdio>
#include <cstdlib>
#include <exception>

#include "FrameSource.h"
#include "Inspector.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kTestPicture[] = "videotestsrc pattern=ball ! video/x-raw,width=1366,height=768";
constexpr std::chrono::milliseconds kLook{200};
constexpr int kPatience = 50;  // looks without a frame

void Print(const Status& status, std::size_t nDropped) {
    std::printf("frames %zu, dropped %zu, %.1f ms p50, %.1f ms p99, %.1f MiB of pixels in use, %.1f at most\n",
                status.nFrames, nDropped, status.dMedianMs, status.dNinetyNinthMs, status.dLiveMiB,
                status.dHighWaterMiB);
}

bool Inspect(const std::string& strDirectory, std::size_t nFrames, const std::string& strElements) {
    FrameSource source(strElements);
    Inspector inspector(strDirectory);
    std::size_t nDropped = 0;
    int nNothing = 0;
    Clock::time_point nextLine = Clock::now() + std::chrono::seconds(1);
    for (std::size_t nTaken = 0; nTaken < nFrames && nNothing < kPatience;) {
        TnRobotPtr<ITnRobotSurface> frame;
        const FrameSource::Next eNext = source.Read(inspector.Surfaces(), kLook, frame);
        if (eNext == FrameSource::Next::kEnd) {
            break;
        }
        nNothing = eNext == FrameSource::Next::kNothing ? nNothing + 1 : 0;
        if (eNext == FrameSource::Next::kFrame) {
            inspector.Take(std::move(frame));
            ++nTaken;
        } else if (eNext == FrameSource::Next::kDropped) {
            ++nDropped;
        }
        if (Clock::now() >= nextLine) {
            Print(inspector.Look(), nDropped);
            nextLine += std::chrono::seconds(1);
        }
    }
    const bool bSaved = inspector.Finish();
    const Status status = inspector.Look();
    Print(status, nDropped);
    std::printf("results in %s, %zu pictures beside it\n", inspector.ResultPath().c_str(), inspector.Pictures());
    return bSaved && status.nFrames != 0;
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    constexpr int kDecimal = 10;
    constexpr std::size_t kFrames = 100;
    if (nArguments < 2 || nArguments > 4) {
        std::fprintf(stderr, "usage: %s OUTPUT_DIRECTORY [FRAMES [GSTREAMER-ELEMENTS]]\n", ppszArguments[0]);
        return 2;
    }
    try {
        const std::size_t nFrames = nArguments > 2 ? std::strtoul(ppszArguments[2], nullptr, kDecimal) : kFrames;
        if (Inspect(ppszArguments[1], nFrames, nArguments > 3 ? ppszArguments[3] : kTestPicture)) {
            return 0;
        }
        std::fprintf(stderr, "nothing was inspected, or the results cannot be saved\n");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
    }
    return 1;
}
