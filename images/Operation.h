#pragma once

/// What is done to every colour of a picture.
enum class Operation { Match, Proof, Gamut, Predict, PrinterMatch, PrinterPredict };

/// What the picture that `gamut` writes holds.
enum class GamutForm { Mask, Overlay, Difference };

/// True for the operations whose input is device values: the monitor's or the printer's.
constexpr bool ReadsDeviceValues(Operation operation) {
    return operation == Operation::Predict || operation == Operation::PrinterPredict;
}
