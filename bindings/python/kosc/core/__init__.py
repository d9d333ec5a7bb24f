"""The modem's stages, one by one, for people who study modems: thin over the functions that libkosc exports.

A message's way into sound, as `Modem().encode()` goes it, and back:

    message -> crc16 -> byte2bin -> ConvCode.encode -> Puncture.punch -> interleaver_encode -> qpsk_mod -> PhasePattern
    -> ofdm_map_subcarries -> ofdm_mod_halfcomplex -> fade -> make_audio
    SampleBuffer (Bandpass, correlation, frame starts) -> ofdm_demod_real -> qpsk_demod -> interleaver_decode
    -> Puncture.depunch -> ConvCode.decode -> bin2byte -> crc16

Arrays go in as anything that numpy takes and come out as new numpy arrays: bits as uint8, one a byte; samples as
float64, at any scale; subcarriers as complex128. What does not fit raises TypeError or ValueError; what the library
refuses raises kosc.KoscError with the reason that it logs.
"""

from .coding import (HOLE, ConvCode, Puncture, bin2byte, byte2bin, crc16, decode82, encode82, interleaver_decode,
                     interleaver_encode)
from .frames import FrameQuality, Modem, SampleBuffer
from .signals import Bandpass, blackman, fade, make_audio
from .symbols import (PhasePattern, dft_spread_demod, dft_spread_mod, fft, ifft, ofdm_demod_real, ofdm_map_subcarries,
                      ofdm_mod_halfcomplex, qpsk_demod, qpsk_mod, zadoff_chu)

__all__ = ["HOLE", "Bandpass", "ConvCode", "FrameQuality", "Modem", "PhasePattern", "Puncture", "SampleBuffer",
           "bin2byte", "blackman", "byte2bin", "crc16", "decode82", "dft_spread_demod", "dft_spread_mod", "encode82",
           "fade", "fft", "ifft", "interleaver_decode", "interleaver_encode", "make_audio", "ofdm_demod_real",
           "ofdm_map_subcarries", "ofdm_mod_halfcomplex", "qpsk_demod", "qpsk_mod", "zadoff_chu"]
