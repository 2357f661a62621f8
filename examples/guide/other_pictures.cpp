// Pictures of all other kinds: OpenCV reads and writes them, and a surface shows its pixels.

#include <TnRobotKernel/opencv.h>

#include <cstdio>
#include <opencv2/imgcodecs.hpp>
#include <string>

namespace {

// [read]
// @return the picture of any file that OpenCV reads, upright, as a B,G,R surface over OpenCV's memory.
TnRobotPtr<ITnRobotSurface> Read(const std::string& strPath) {
    return tn::SurfaceOver(cv::imread(strPath, cv::IMREAD_COLOR));
}
// [/read]

}  // namespace

int main() {
    // [write]
    const cv::Mat picture(48, 62, CV_8UC3, cv::Scalar(10, 20, 30));
    bool bOk = cv::imwrite("picture.png", picture) &&
               cv::imwrite("picture.bmp", picture) &&  // with padded rows, as most programs write them
               cv::imwrite("picture.ppm", picture);
    // [/write]
    const auto blocks = tn::MakeMemoryBlockPool();
    const auto pool = tn::MakeSurfacePool(blocks.get());
    for (const char* lpszPath : {"picture.png", "picture.bmp", "picture.ppm"}) {
        std::error_code ec;
        const bool bOwn = tn::LoadImage(lpszPath, pool.get(), ec) != nullptr;
        const auto surface = Read(lpszPath);
        const tn::LockedPixels pixels(surface);
        std::printf("%s: %d x %d through OpenCV, by itself %s\n", lpszPath, pixels.Width(), pixels.Height(),
                    bOwn ? "too" : ec.message().c_str());
        bOk = bOk && pixels;
    }
    return bOk ? 0 : 1;
}
