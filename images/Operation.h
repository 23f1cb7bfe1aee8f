#pragma once

/// What is done to every colour of a picture.
enum class Operation { Match, Proof, Gamut, Predict, PrinterMatch, PrinterPredict };

/// What the picture that `gamut` writes holds.
enum class GamutForm { Mask, Overlay, Difference };

/// The largest difference, in CIE76, of a colour and its prediction back that still counts as in gamut.
inline constexpr double kMonitorTolerance = 1, kPrinterTolerance = 3;

/// True for the operations whose input is device values: the monitor's or the printer's.
constexpr bool ReadsDeviceValues(Operation operation) {
    return operation == Operation::Predict || operation == Operation::PrinterPredict;
}
