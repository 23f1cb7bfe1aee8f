#pragma once

/// How the pixels of a TIFF file are stored; nothing is lost either way.
enum class TiffCompression { Lzw, Deflate, None };
