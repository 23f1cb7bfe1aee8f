from __future__ import annotations


class ColourMatchError(Exception):
    """What the library answered instead of doing what it was asked.

    ``status`` is the library's signed 16-bit status, ``sentence`` says what is wrong and what would be right. Instances can be pickled.
    """

    status: int
    sentence: str

    def __init__(self, status: int, sentence: str) -> None:
        super().__init__(status, sentence)
        self.status = status
        self.sentence = sentence

    def __str__(self) -> str:
        return f"{self.sentence} (status {self.status})"


class ProfileError(ColourMatchError):
    """A profile that is missing (-43), cannot be read (-36, -39, -54), is too large (-50), or does not suit its place (-170)."""
