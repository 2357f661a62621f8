// Base64, rectangles, SQL conditions.

#include <TnRobotKernel/utilities.h>

#include <cstdio>

namespace {

void ShowBase64() {
    // [base64]
    const unsigned char bytes[] = {'r', 'o', 'b', 'o', 't'};
    char szText[9] = {};  // 4 characters for every 3 bytes, and a zero of our own
    const int nCharacters = TnRobotTextCodec::Base64Encode(bytes, sizeof(bytes), szText);
    unsigned char decoded[6] = {};
    const int nBytes = TnRobotTextCodec::Base64Decode(szText, decoded);
    std::printf("%s (%d characters), back: %.*s\n", szText, nCharacters, nBytes, reinterpret_cast<char*>(decoded));
    // [/base64]
}

void ShowRectangles() {
    // [rectangles]
    const STnNLRect part = {10, 60, 10, 40};  // left, right, top, bottom
    const STnNLRect window = {40, 100, 20, 80};
    STnNLRect common{};
    if (TnRobotRectUtils::GetInterRect(part, window, common)) {
        std::printf("common: %d to %d across, %d to %d down\n", common.left, common.right, common.top, common.bottom);
    }
    // [/rectangles]
}

void ShowFilters() {
    // [filters]
    std::printf("%s\n", TnRobotSQLUtils::CreateFilter("name", "gripper%").c_str());
    std::printf("%s\n", TnRobotSQLUtils::CreateFilter("weight", TnRobotSQLUtils::SQL_OPERA_GREATER, "12").c_str());
    // [/filters]
}

}  // namespace

int main() {
    ShowBase64();
    ShowRectangles();
    ShowFilters();
}
