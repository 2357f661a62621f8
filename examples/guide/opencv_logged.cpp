// OpenCV reads a picture that the library does not, the library shows it as a surface, and a log says how it went.

#include <TnRobotKernel/opencv.h>
#include <TnRobotKernel/tn/tn.h>
#include <TnRobotLog/TnRobotLog.h>

#include <cstdio>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <string>

namespace {

// [log]
// The program works without a log, too: its lines go nowhere then.
void StartLog() {
    const int nResult = TnRobotLogUtils::Init();
    if (nResult != 0) {
        std::fprintf(stderr, "no log: %d\n", nResult);
    }
}
// [/log]

// [brighten]
// Reads a picture, changes it with OpenCV, and saves it with the library.
bool Brighten(const std::string& strFrom, const char* lpszTo) {
    cv::Mat picture = cv::imread(strFrom, cv::IMREAD_COLOR);  // any kind of file, upright
    if (picture.empty()) {
        TnRobotLogUtils::PrintLog(TN_LOG_ERROR, "%s: OpenCV cannot read it", strFrom.c_str());
        return false;
    }
    picture += cv::Scalar(50, 50, 50);
    std::error_code ec;
    const auto surface = tn::SurfaceOver(picture);  // the same pixels: nothing is copied
    if (!surface || !tn::SaveImage(lpszTo, surface.get(), ec)) {
        TnRobotLogUtils::PrintLog(TN_LOG_ERROR, "%s: %s", lpszTo, ec.message().c_str());
        return false;
    }
    TnRobotLogUtils::PrintLog(TN_LOG_INFO, "%s: %d x %d pixels", lpszTo, picture.cols, picture.rows);
    return true;
}
// [/brighten]

// The lines of a file, without the time and the thread's number that each begins with.
void PrintTexts(const char* lpszPath) {
    std::ifstream file(lpszPath);
    for (std::string strLine; std::getline(file, strLine);) {
        constexpr std::size_t kTime = sizeof("2026-11-21 20:46:49.123456 ") - 1;
        const char chLevel = strLine.size() > kTime ? strLine[kTime] : '?';
        const std::size_t nText = strLine.find(' ', kTime + 2);
        std::printf("%c%s\n", chLevel, nText != std::string::npos ? strLine.c_str() + nText : "?");
    }
}

}  // namespace

int main() {
    StartLog();
    if (!cv::imwrite("part.png", cv::Mat(48, 62, CV_8UC3, cv::Scalar(10, 20, 30)))) {
        return 1;
    }
    const bool bOk = Brighten("part.png", "part.jpg") && !Brighten("part.png", "part.bmp") &&  // 62 pixels: not as BMP
                     !Brighten("missing.png", "missing.jpg");
    TnRobotLogUtils::Destroy();  // all lines are in the file now
    PrintTexts("opencv_logged.log");
    return bOk ? 0 : 1;
}
