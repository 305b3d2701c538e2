// Image builtins: making a `bitmap`, the plain pixel and circle helpers that
// take a bitmap handle, and JPEG decoding and encoding of byte buffers.
//
// `bmp` makes a bitmap, blank or from bytes. `bmp_setpixel` and `bmp_circle`
// draw on a bitmap with a colour given as a list of integers (R, G, B).
// `jpg_decode` and `jpg_encode` run as jobs on a worker thread while the
// calling block sleeps: a decode replaces the bytes of its buffer by the
// decoded pixels (R, G, B order, as the file holds them), an encode writes a
// JPEG file image into a buffer. Wrong calls are reported in the block form
// and the script goes on.
#pragma once

#include "builtins/registry.h"

namespace vrk::lib {

VRK_BUILTIN(bmp);           // (uchars,width,height) or (width,height) a new bitmap
VRK_BUILTIN(bmp_setpixel);  // (bmp,x,y,[r,g,b]) one pixel
VRK_BUILTIN(bmp_circle);    // (bmp,x,y,radius,[r,g,b],width) a circle
VRK_BUILTIN(bmp_data);      // (bmp) placeholder: an empty buffer
VRK_BUILTIN(jpg_decode);    // (uchars,ref width,ref height) decode a JPEG in place
VRK_BUILTIN(jpg_encode);    // (uchars,w,h,opt out) or (bmp,opt out) encode a JPEG

}  // namespace vrk::lib
