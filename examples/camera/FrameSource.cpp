#include "FrameSource.h"

#include <cstring>
#include <stdexcept>

namespace {

// Takes an error's words and frees it.
std::string TextOf(GError* pError) {
    std::string strText = pError != nullptr ? pError->message : "unknown error";
    g_clear_error(&pError);
    return strText;
}

// A frame's pixels for as long as it lives.
class MappedFrame {
public:
    explicit MappedFrame(GstSample& sample)
        : m_bMapped(gst_video_info_from_caps(&m_info, gst_sample_get_caps(&sample)) != 0 &&
                    gst_video_frame_map(&m_frame, &m_info, gst_sample_get_buffer(&sample), GST_MAP_READ) != 0) {}
    MappedFrame(const MappedFrame&) = delete;
    MappedFrame& operator=(const MappedFrame&) = delete;
    ~MappedFrame() {
        if (m_bMapped) {
            gst_video_frame_unmap(&m_frame);
        }
    }

    explicit operator bool() const { return m_bMapped; }
    int Width() const { return m_info.width; }
    int Height() const { return m_info.height; }
    const unsigned char* Row(int nRow) const {
        return static_cast<const unsigned char*>(m_frame.data[0]) + std::ptrdiff_t{m_frame.info.stride[0]} * nRow;
    }

private:
    GstVideoInfo m_info{};
    GstVideoFrame m_frame{};
    bool m_bMapped;  // after what the mapping fills
};

TnRobotPtr<ITnRobotSurface> CopyOf(const MappedFrame& frame, ITnRobotSurfacePool& pool) {
    constexpr std::size_t kPixelBytes = 3;
    TnRobotPtr<ITnRobotSurface> surface =
        tn::QuerySurface(pool, {frame.Width(), frame.Height(), 0, TN_IMAGE_BGR24, {0, 0}});
    ITnRobotSurface::STnLockSurface lock{};
    if (!surface || !surface->LockSurface(lock)) {
        return nullptr;
    }
    for (int nRow = 0; nRow < lock.nHeight; ++nRow) {
        std::memcpy(lock.pData + std::ptrdiff_t{lock.nPitch} * nRow, frame.Row(nRow),
                    static_cast<std::size_t>(lock.nWidth) * kPixelBytes);
    }
    surface->UnLockSurface();
    return surface;
}

}  // namespace

void FrameSource::Stop::operator()(GstElement* pPipeline) const {
    gst_element_set_state(pPipeline, GST_STATE_NULL);
    gst_object_unref(pPipeline);
}

// A source that is too slow to be waited for keeps no more than a few frames back.
FrameSource::FrameSource(const std::string& strElements) {
    gst_init(nullptr, nullptr);
    const std::string strPipeline = strElements +
                                    " ! videoconvert ! video/x-raw,format=BGR"
                                    " ! appsink name=sink sync=false max-buffers=4";
    GError* pError = nullptr;
    m_pipeline.reset(gst_parse_launch(strPipeline.c_str(), &pError));
    if (!m_pipeline || pError != nullptr) {
        throw std::runtime_error(TextOf(pError));
    }
    m_sink.reset(gst_bin_get_by_name(reinterpret_cast<GstBin*>(m_pipeline.get()), "sink"));
    if (!m_sink || gst_element_set_state(m_pipeline.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        ThrowIfFailed();
        throw std::runtime_error("the source does not start");
    }
}

FrameSource::Next FrameSource::Read(ITnRobotSurfacePool& pool, std::chrono::milliseconds limit,
                                    TnRobotPtr<ITnRobotSurface>& frame) {
    frame.reset();
    auto* const pSink = reinterpret_cast<GstAppSink*>(m_sink.get());
    const auto nLimit = static_cast<GstClockTime>(std::chrono::nanoseconds(limit).count());
    const std::unique_ptr<GstSample, Unref> sample(gst_app_sink_try_pull_sample(pSink, nLimit));
    if (!sample) {
        ThrowIfFailed();
        return gst_app_sink_is_eos(pSink) != 0 ? Next::kEnd : Next::kNothing;
    }
    const MappedFrame mapped(*sample);
    if (!mapped) {
        throw std::runtime_error("a frame cannot be read");
    }
    frame = CopyOf(mapped, pool);
    return frame ? Next::kFrame : Next::kDropped;
}

void FrameSource::ThrowIfFailed() {
    GstBus* pBus = gst_element_get_bus(m_pipeline.get());
    GstMessage* pMessage = gst_bus_pop_filtered(pBus, GST_MESSAGE_ERROR);
    gst_object_unref(pBus);
    if (pMessage != nullptr) {
        GError* pError = nullptr;
        gst_message_parse_error(pMessage, &pError, nullptr);
        gst_message_unref(pMessage);
        throw std::runtime_error(TextOf(pError));
    }
}
