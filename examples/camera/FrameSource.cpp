#include "FrameSource.h"

#include <cstdint>
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
    // Bytes from one row to the next.
    int Pitch() const { return m_frame.info.stride[0]; }

    // The pixels where they are. The last row ends with them.
    STnNLImageData Image() const {
        STnNLImageData image{};
        image.pData = static_cast<unsigned char*>(m_frame.data[0]);
        image.nWidth = m_info.width;
        image.nHeight = m_info.height;
        image.eImageType = TN_IMAGE_BGR24;
        image.nDataSize = static_cast<unsigned int>(std::int64_t{Pitch()} * (image.nHeight - 1) +
                                                    tn::RowBytes(image.eImageType, image.nWidth));
        return image;
    }

private:
    GstVideoInfo m_info{};
    GstVideoFrame m_frame{};
    bool m_bMapped;  // after what the mapping fills
};

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
    frame = tn::CopyToSurface(pool, mapped.Image(), mapped.Pitch());
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
