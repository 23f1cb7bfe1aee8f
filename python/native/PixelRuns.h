#pragma once

/// The operations of MatchingRecord.h on arrays of packed pixels, three samples a colour, as well as of four.

#include "ColourMatch/ColourMatch.h"

CM_C_BEGIN

enum PixelOperation { kRunMatch, kRunPredict, kRunGamut, kRunProof, kRunPrinterMatch, kRunPrinterPredict, kRunPrinterGamut };

/// depth                 of device values, 8 or 16 bits a sample; reference RGB has 16
/// source, destination   aligned for their samples; the same block, or blocks apart
/// sourceChannels        3: packed colours; 4: as the operation takes them (four inks, or with padding)
/// destinationChannels   the same; a gamut's answers are one byte a colour, whatever is given
/// returns               what the operation answered
///
/// Any thread.
int16_t RunPixels(enum PixelOperation operation, int depth, const MatchingData* record, const void* source, size_t sourceChannels, void* destination,
                  size_t destinationChannels, size_t count);

/// Samples of pictures, made reference RGB.
///
/// depth           of the source's samples, 8 or 16 bits
/// samples         of a source pixel: the colours', and what follows them is skipped
/// channels        of the transform; with 3 of them and fewer than 3 samples, the first is repeated
/// returns         whether all was converted
///
/// Any thread.
Boolean RunToReference(ColorSyncTransformRef transform, int depth, const void* source, size_t samples, size_t channels, uint16_t* destination,
                       size_t destinationChannels, size_t count);

/// The two in one, without an array of reference RGB between them: samples of a picture in, and device values of `operation` out.
///
/// returns   what the operation answered; -108 when the samples could not be converted
///
/// Any thread.
int16_t RunPicture(ColorSyncTransformRef transform, int sourceDepth, const void* source, size_t samples, size_t channels,
                   enum PixelOperation operation, const MatchingData* record, int depth, void* destination, size_t destinationChannels, size_t count);

CM_C_END
