// Frames from GStreamer: a test picture, a camera, a file, whatever its elements bring.

#ifndef TNROBOTKERNEL_EXAMPLES_CAMERA_FRAMESOURCE_H_
#define TNROBOTKERNEL_EXAMPLES_CAMERA_FRAMESOURCE_H_

#include <TnRobotKernel/make.h>
#include <gst/app/gstappsink.h>
#include <gst/video/video.h>

#include <chrono>
#include <memory>
#include <string>

/// A pipeline that ends in this program, as pictures of B,G,R pixels.
class FrameSource {
public:
    enum class Next {
        kFrame,    ///< here it is
        kDropped,  ///< there was one, and no memory for it
        kNothing,  ///< none has come in time
        kEnd,      ///< no more will come
    };

    /// @param[in] strElements  in the words of gst-launch-1.0, such as "v4l2src device=/dev/video0".
    /// Throws std::runtime_error with GStreamer's own words when there is no such thing.
    explicit FrameSource(const std::string& strElements);

    /// Waits for the next frame and copies it into a surface, row by row: either has a pitch of its own.
    /// @param[in]  pool   borrowed for the call.
    /// @param[in]  limit  longest wait.
    /// @param[out] frame  set with kFrame, otherwise empty.
    /// Throws std::runtime_error when the pipeline fails.
    Next Read(ITnRobotSurfacePool& pool, std::chrono::milliseconds limit, TnRobotPtr<ITnRobotSurface>& frame);

private:
    struct Stop {
        void operator()(GstElement* pPipeline) const;
    };
    struct Unref {
        void operator()(GstSample* pSample) const { gst_sample_unref(pSample); }
        void operator()(GstElement* pElement) const { gst_object_unref(pElement); }
    };

    void ThrowIfFailed();

    std::unique_ptr<GstElement, Stop> m_pipeline;
    std::unique_ptr<GstElement, Unref> m_sink;
};

#endif  // TNROBOTKERNEL_EXAMPLES_CAMERA_FRAMESOURCE_H_
