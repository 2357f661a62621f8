/// @file
/// The point shared by images and rectangles; included by the headers that use it.

#ifndef TNROBOTKERNEL_DETAIL_POINT_H_
#define TNROBOTKERNEL_DETAIL_POINT_H_

/// @ingroup image
/// A position, in an image in pixels.
struct STnNL2DPoint {
    int x;  ///< to the right
    int y;  ///< downwards
};

#endif  // TNROBOTKERNEL_DETAIL_POINT_H_
