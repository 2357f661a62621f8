// A surface seen as a matrix, and a matrix as a surface, over the same pixels.

#include <TnRobotKernel/opencv.h>

#include <cstdio>
#include <opencv2/core.hpp>

int main() {
    // [view]
    const auto blocks = tn::MakeMemoryBlockPool();
    const auto pool = tn::MakeSurfacePool(blocks.get());
    auto surface = tn::QuerySurface(*pool, {63, 48, 0, TN_IMAGE_BGR24, {0, 0}});
    cv::Mat mat = tn::MatOver(surface, pool);
    mat.setTo(cv::Scalar(10, 20, 30));
    mat(cv::Rect(8, 8, 16, 16)).setTo(cv::Scalar(200, 200, 200));

    {
        const tn::LockedPixels pixels(surface);
        const unsigned char* pFirst = pixels.Row(0);
        std::printf("matrix %d x %d, step %zu, pitch %d\n", mat.cols, mat.rows, mat.step[0], pixels.Pitch());
        std::printf("first pixel through the surface: %d %d %d\n", pFirst[0], pFirst[1], pFirst[2]);
    }

    surface.reset();  // the matrix keeps the pixels
    const cv::Scalar mean = cv::mean(mat);
    std::printf("mean after the surface's pointer is gone: %.1f %.1f %.1f\n", mean[0], mean[1], mean[2]);
    // [/view]

    // [over]
    const cv::Mat grey(48, 64, CV_8UC1, cv::Scalar(77));
    const auto over = tn::SurfaceOver(grey);
    const auto region = tn::ClipImage(pool.get(), over.get(), tn::RegionOf(cv::Rect(0, 0, 16, 16)));
    std::printf("a region of the matrix through the library: %s\n", region ? "yes" : "no");
    // [/over]
    return region ? 0 : 1;
}
