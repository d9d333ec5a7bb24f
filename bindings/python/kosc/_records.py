"""The C interface as ctypes sees it: the records and functions of include/kosc/*.h that the package uses."""

from __future__ import annotations

from ctypes import (CFUNCTYPE, POINTER, Structure, Union, c_bool, c_char_p, c_double, c_int, c_int32, c_uint8,
                    c_uint32, c_uint64, c_void_p)
from typing import Any

BYTES = c_void_p  # arrays go in as addresses of numpy memory, which the wrappers have checked
u8, u32, f64 = c_uint8, c_uint32, c_double


def _record(name: str, *fields: Any, base: Any = Structure) -> Any:
    return type(name, (base,), {"_fields_": list(fields), "__module__": __name__})


def _vector(name: str, element: Any) -> Any:
    return _record(name, ("owner", u32), ("size", u32), ("stride", u32), ("data", POINTER(element)))


VectorUint8 = _vector("VectorUint8", u8)
Vector = _vector("Vector", f64)
VectorComplex = _vector("VectorComplex", f64)

# config.h
CrcCfg = _record("CrcCfg", ("bits", u32), ("group", u32), ("put_crc", u32))
LinearCodeCfg = _record("LinearCodeCfg", ("n", u32), ("k", u32))
ConvCodeCfg = _record("ConvCodeCfg", ("constraint", u32), ("polynomials", POINTER(u32)), ("polynomial_num", u32))
CodeParas = _record("CodeParas", ("conv", ConvCodeCfg), ("linear", LinearCodeCfg), base=Union)
ChannelCodeCfg = _record("ChannelCodeCfg", ("type", u32), ("paras", CodeParas))
OfdmCfg = _record("OfdmCfg", ("symbol_len", u32), ("cp_len", u32), ("sc_start_idx", u32), ("sc_num", u32),
                  ("papr", c_int32))
FadeCfg = _record("FadeCfg", ("enable", u32), ("len", u32))
Cfg = _record("Cfg", ("msg_byte_len", u32), ("crc", CrcCfg), ("channel_code", ChannelCodeCfg),
              ("interleaver_stride", u32), ("mod_type", u32), ("ofdm", OfdmCfg), ("pilot_type", u32),
              ("data_pilot_rate", u32), ("fade", FadeCfg))
AudioFormat = _record("AudioFormat", ("sample_bytes", u32), ("track_num", u32), ("sample_rate", u32))
AudioGain = _record("AudioGain", ("normalize", u32), ("amplitude", f64))

# bands.h, kosc.h
Band = _record("Band", ("name", c_char_p), ("use", c_char_p), ("first_subcarrier", u32), ("low_hz", f64),
               ("high_hz", f64))
Options = _record("Options", ("size", u32), ("first_subcarrier", u32), ("on_messages", c_void_p), ("user", c_void_p),
                  ("second_look", u32), ("combining", u32), ("crowd", u32))

# frame_layout.h, papr.h, context.h: the starts of a pattern and of a parameter set
Frame = _record("Frame", *((name, u32) for name in (
    "bytes", "bits", "re_num", "data_symbols", "pilot_symbols", "symbols", "frame_length", "sync_pilot_index",
    "len_before_sync")))
Pilot = _record("Pilot", ("sequence", POINTER(VectorComplex)), ("samples", POINTER(Vector)),
                ("reference", POINTER(f64)))
PhasePattern = _record("PhasePattern", ("shift_factors", POINTER(f64)), ("shift_count", u32))
Paras = _record("Paras", ("cfg", Cfg), ("frame", Frame), ("sync_pilot", Pilot), ("estimating_pilot", Pilot),
                ("conv_code", c_void_p), ("punch_template", c_void_p), ("phase_pattern", POINTER(PhasePattern)))

# conv_code.h, puncture.h, filter.h, channel_smoother.h, drift.h
ConvData = _record("ConvData", ("data", POINTER(u8)), ("len", u32))
PunchTemplate = _record("PunchTemplate", *((name, u32) for name in (
    "total_len", "kept_len", "removed_len", "offset", "step")))
Bandpass = _record("Bandpass", ("order", u32), ("f1", f64), ("f2", f64), ("b", POINTER(f64)), ("nb", u32),
                   ("a", POINTER(f64)), ("na", u32), ("w", POINTER(f64)), ("nw", u32))

# sample_buffer.h: the start of a container
SyncParas = _record("SyncParas", ("peak_threshold", f64), ("search_margin", u32), ("corr_step", u32))
Container = _record("Container", ("peak_threshold", f64), ("search_margin", u32), ("corr_step", u32),
                    ("filter", c_void_p), ("data", c_void_p), ("filtered_data", c_void_p), ("data_norm", c_void_p),
                    ("corrcoef", c_void_p))

# second_look.h, combining.h, receiver.h
Quality = _record("Quality", ("needed", c_bool), ("decoded", c_bool), ("attempts", u32), ("coherence", f64),
                  ("drift_ppm", f64), ("drift_change_ppm", f64), ("snr_db", f64), ("evm", f64))
CombinedReport = _record("CombinedReport", ("frames", u32), ("hearings", u32), ("channels", u32), ("attempts", u32),
                         ("seconds", f64), ("snr_db", f64), ("newest_snr_db", f64), ("drift_ppm", f64))
FrameReport = _record("FrameReport", ("sample", c_uint64), ("track", u32), ("verdict", u32), ("failed_crcs", u32),
                      ("msg_len", u32), ("msg", POINTER(u8)), ("samples", POINTER(f64)), ("correlation", f64),
                      ("quality", Quality), ("combined", POINTER(CombinedReport)))
FRAME_CALLBACK = CFUNCTYPE(None, POINTER(FrameReport), c_void_p)
ResultPart = _record("ResultPart", ("buffer", c_void_p), ("room", u32), ("count", u32))
ResultSet = _record("ResultSet", ("decode_type", u32), ("correct", ResultPart), ("error", ResultPart),
                    ("second_correct", ResultPart), ("second_error", ResultPart))

_VU8, _V, _VC = POINTER(VectorUint8), POINTER(Vector), POINTER(VectorComplex)

FUNCTIONS: dict[str, tuple[Any, list[Any]]] = {
    # log.h
    "soundcomm_set_log_callback": (None, [c_void_p]),
    "soundcomm_config_log_time": (None, [u32]),
    "soundcomm_set_log_level": (None, [u32]),
    # vector.h, growable_vector.h
    "kom_vector_uint8_free": (None, [_VU8]),
    "kom_vector_free": (None, [_V]),
    "kom_vector_complex_free": (None, [_VC]),
    "vector_size": (u32, [c_void_p]),
    "vector_view": (POINTER(f64), [c_void_p, c_int32, u32]),
    # crc.h, block_code.h, interleaver.h
    "crc16": (c_bool, [BYTES, BYTES, u32]),
    "byte2bin": (c_bool, [BYTES, BYTES, u32]),
    "bin2byte": (c_bool, [BYTES, BYTES, u32]),
    "encode82": (_VU8, [_VU8]),
    "decode82": (_VU8, [_VU8]),
    "interleaver_encode": (_VU8, [_VU8, u32]),
    "interleaver_decode": (_VU8, [_VU8, u32]),
    # conv_code.h, soft_viterbi.h, puncture.h
    "conv_code_init": (c_void_p, [u32, BYTES, u32]),
    "conv_code_release": (None, [c_void_p]),
    "conv_code_encode": (ConvData, [c_void_p, BYTES, u32]),
    "conv_code_decode_hard": (ConvData, [c_void_p, BYTES, u32, c_bool]),
    "conv_code_free_data": (None, [POINTER(u8), u32]),
    "soft_viterbi_init": (c_void_p, [c_void_p, u32]),
    "soft_viterbi_free": (None, [c_void_p]),
    "soft_viterbi_decode": (c_bool, [c_void_p, BYTES, u32, BYTES]),
    "get_punch_template": (POINTER(PunchTemplate), [u32, u32]),
    "free_punch_template": (None, [POINTER(PunchTemplate)]),
    "punch_code": (c_bool, [POINTER(PunchTemplate), BYTES, u32, BYTES, u32]),
    "depunch_code": (c_bool, [POINTER(PunchTemplate), BYTES, u32, BYTES, u32]),
    # qpsk.h, ofdm.h, fft.h, papr.h, zadoff_chu.h
    "qpsk_mod": (_VC, [_VU8]),
    "qpsk_demod": (_VU8, [_VC]),
    "ofdm_map_subcarries": (_VC, [_VC, u32, u32]),
    "ofdm_mod_halfcomplex": (_V, [_VC]),
    "ofdm_demod_real": (_VC, [_V]),
    "kom_fft_complex_radix2_forward": (c_bool, [BYTES, u32, u32]),
    "kom_fft_complex_radix2_inverse": (c_bool, [BYTES, u32, u32]),
    "calc_phase_pattern": (c_void_p, [BYTES, u32]),
    "free_phase_pattern": (None, [c_void_p]),
    "phase_shift": (c_bool, [BYTES, u32, c_void_p]),
    "phase_restore": (c_bool, [BYTES, u32, c_void_p]),
    "dft_spread_mod": (c_bool, [BYTES, u32]),
    "dft_spread_demod": (c_bool, [BYTES, u32]),
    "zc": (None, [c_int32, u32, c_int32, BYTES]),
    # filter.h, fade.h, audio_render.h
    "blackman": (None, [u32, BYTES]),
    "create_butterworth_bandpass2": (POINTER(Bandpass), [u32, c_int32, f64, f64, f64]),
    "butterworth_bandpass_filter": (f64, [POINTER(Bandpass), f64]),
    "butterworth_bandpass_reset_buffer": (None, [POINTER(Bandpass)]),
    "free_butterworth_bandpass": (None, [POINTER(Bandpass)]),
    "do_fade_in_out": (None, [FadeCfg, BYTES, u32]),
    "soundcomm_make_audio": (c_bool, [AudioFormat, AudioGain, BYTES, u32, BYTES]),
    # bands.h, kosc.h
    "ko_soundcommu_get_band": (POINTER(Band), [u32]),
    "ko_soundcommu_find_band": (c_int, [c_char_p, POINTER(Band)]),
    "soundcomm_cfg_for_band": (c_bool, [u32, POINTER(Cfg)]),
    "ko_soundcommu_default_options": (None, [POINTER(Options), u32]),
    "ko_soundcommu_init_with": (c_void_p, [POINTER(Options)]),
    "ko_soundcommu_release": (None, [c_void_p]),
    "ko_soundcommu_encode": (c_int, [c_void_p, BYTES, u32, BYTES, u32]),
    # config.h, context.h, frame_layout.h, encoder.h, decoder.h
    "soundcomm_default_cfg": (POINTER(Cfg), []),
    "soundcomm_init": (c_void_p, [POINTER(Cfg), POINTER(Cfg)]),
    "soundcomm_release": (None, [c_void_p]),
    "soundcomm_get_paras": (POINTER(Paras), [c_void_p, c_int]),
    "soundcomm_get_frame_length_from_cfg": (u32, [POINTER(Cfg)]),
    "is_pilot_index": (c_bool, [u32, u32]),
    "soundcomm_encode": (c_int, [POINTER(Paras), BYTES, u32, BYTES, u32]),
    "soundcomm_decode": (u32, [c_void_p, BYTES, u32, BYTES, BYTES, u32]),
    # sample_buffer.h, receiver.h, second_look.h, combining.h, crowd.h
    "data_container_init": (POINTER(Container), [u32, u32, u32, SyncParas, BYTES, u32, POINTER(Bandpass)]),
    "data_container_free": (None, [POINTER(Container)]),
    "data_container_recv_block": (c_bool, [POINTER(Container), BYTES, u32, u32]),
    "data_container_begin": (c_void_p, [POINTER(Container)]),
    "sync_iter_is_end": (c_bool, [c_void_p]),
    "sync_iter_get_global_offset": (u32, [c_void_p]),
    "sync_iter_update_decode_state": (None, [c_void_p, u32]),
    "sync_iter_next": (None, [c_void_p]),
    "soundcomm_default_rx_sync_paras": (SyncParas, []),
    "soundcomm_default_audio_format": (AudioFormat, []),
    "soundcomm_init_receive": (c_bool, [c_void_p, SyncParas, AudioFormat]),
    "soundcomm_set_frame_callback": (None, [c_void_p, FRAME_CALLBACK, c_void_p]),
    "soundcomm_get_silence_around": (u32, [c_void_p]),
    "soundcomm_receive": (c_int, [c_void_p, BYTES, u32, POINTER(ResultSet)]),
    "soundcomm_config_second_look": (c_bool, [c_void_p, u32]),
    "soundcomm_config_crowd": (c_bool, [c_void_p, u32]),
    "soundcomm_config_combining": (c_bool, [c_void_p, c_void_p, u32]),
    "soundcomm_decode_second_look": (u32, [c_void_p, BYTES, u32, BYTES, u32, POINTER(Quality)]),
}

