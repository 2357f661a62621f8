#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include "startup/Probed.h"

int FirstValue(int nNumber) {
    return cv::Mat(1, 1, CV_32SC1, cv::Scalar(nNumber)).at<int>(0);
}

int FirstPicture(const unsigned char* pData, unsigned int nLength) {
    const cv::Mat jpeg(1, static_cast<int>(nLength), CV_8UC1, const_cast<unsigned char*>(pData));
    return cv::imdecode(jpeg, cv::IMREAD_COLOR).cols;
}
