// What kosc.Native declares. Java holds numbers; what they stand for is here, in tables, so a number that was closed
// is only unknown, and whatever a call uses lives until it returns. The library is inside, with a logger of its own.
#include <jni.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "receivers.h"

namespace {

using kosc_jni::handle_table;
using kosc_jni::heard;
using kosc_jni::receiver;

constexpr jint PIECE = 4096; // samples copied at a time
constexpr const char* ILLEGAL_ARGUMENT = "java/lang/IllegalArgumentException";

struct sender {
    kosc::handle_ptr handle;
};

handle_table<receiver> receivers;
handle_table<sender> senders;

thread_local char last_error[256];

// Keeps the sentence of "[ERROR][sentence][number]" for the exception that follows.
void keep_error(const char* line)
{
    const std::string_view text{line};
    const size_t start = text.find("][") + 2;
    const size_t end = text.rfind("][");
    const std::string_view sentence = end > start && end != text.npos ? text.substr(start, end - start) : text;
    const size_t length = std::min(sentence.size(), sizeof last_error - 1);
    std::memcpy(last_error, sentence.data(), length);
    last_error[length] = '\0';
}

void raise(JNIEnv* env, const char* type, const char* sentence)
{
    const jclass exception = env->FindClass(type);
    if (exception != nullptr) { // else that is the exception
        env->ThrowNew(exception, sentence);
    }
}

void raise_failure(JNIEnv* env, const char* sentence)
{
    const std::string why = last_error[0] == '\0' ? "" : std::string{" ("} + last_error + ")";
    raise(env, "kosc/KoscException", (sentence + why).c_str());
}

// Runs a call's work: C++ may lack memory, and nothing but Java's exceptions may reach Java.
template <typename Work> auto guarded(JNIEnv* env, Work work) -> decltype(work())
{
    last_error[0] = '\0';
    try {
        return work();
    } catch (const std::bad_alloc&) {
        raise(env, "java/lang/OutOfMemoryError", "There is no memory for the modem.");
    }
    return {};
}

// What `id` stands for; null, with an exception, when it was closed.
template <typename T> std::shared_ptr<T> find(JNIEnv* env, const handle_table<T>& table, jlong id, const char* closed)
{
    auto found = table.find(id);
    if (!found) {
        raise(env, "java/lang/IllegalStateException", closed);
    }
    return found;
}

jobjectArray band_record(JNIEnv* env, const ko_soundcommu_band_t& band)
{
    const jclass object = env->FindClass("java/lang/Object");
    const jobjectArray record = object != nullptr ? env->NewObjectArray(3, object, nullptr) : nullptr;
    const jstring name = record != nullptr ? env->NewStringUTF(band.name) : nullptr;
    const jstring use = name != nullptr ? env->NewStringUTF(band.use) : nullptr;
    const jdoubleArray figures = use != nullptr ? env->NewDoubleArray(3) : nullptr;
    if (figures == nullptr) {
        return nullptr; // with Java's exception
    }
    const jdouble values[] = {static_cast<jdouble>(band.first_subcarrier), band.low_hz, band.high_hz};
    env->SetDoubleArrayRegion(figures, 0, 3, values);
    env->SetObjectArrayElement(record, 0, name);
    env->SetObjectArrayElement(record, 1, use);
    env->SetObjectArrayElement(record, 2, figures);
    return record;
}

jobjectArray get_band(JNIEnv* env, jclass, jint index)
{
    const ko_soundcommu_band_t* const band = ko_soundcommu_get_band(static_cast<uint32_t>(index));
    return band != nullptr ? band_record(env, *band) : nullptr;
}

jobjectArray find_band(JNIEnv* env, jclass, jstring text)
{
    return guarded(env, [&]() -> jobjectArray {
        std::string name(static_cast<size_t>(env->GetStringUTFLength(text)) + 1, '\0'); // Java ends it with a zero
        env->GetStringUTFRegion(text, 0, env->GetStringLength(text), name.data());
        ko_soundcommu_band_t band;
        if (ko_soundcommu_find_band(name.c_str(), &band) != 0) {
            // The library repeats the text's beginning, which may end in half a character.
            std::replace_if(
                last_error, last_error + std::strlen(last_error), [](char c) { return (c & 0x80) != 0; }, '?');
            raise(env, ILLEGAL_ARGUMENT, last_error);
            return nullptr;
        }
        return band_record(env, band);
    });
}

jint default_subcarrier(JNIEnv*, jclass) { return static_cast<jint>(soundcomm_default_cfg()->ofdm_cfg.sc_start_idx); }

jstring version(JNIEnv* env, jclass) { return env->NewStringUTF(KOSC_VERSION); }

jlong open_sender(JNIEnv* env, jclass, jint first_subcarrier)
{
    return guarded(env, [&]() -> jlong {
        ko_soundcommu_options_t options;
        ko_soundcommu_default_options(&options, sizeof options);
        options.first_subcarrier = static_cast<uint32_t>(first_subcarrier);
        auto made = std::make_shared<sender>();
        made->handle.reset(ko_soundcommu_init_with(&options));
        if (!made->handle) {
            raise_failure(env, "The modem cannot be set up.");
            return 0;
        }
        return senders.add(std::move(made));
    });
}

// `frame` has room for FRAME_SAMPLES.
bool encode_into(JNIEnv* env, jlong id, jbyteArray message, int16_t* frame)
{
    const auto found = find(env, senders, id, "The modem is closed.");
    if (!found) {
        return false;
    }
    jbyte bytes[kosc::MESSAGE_BYTES] = {};
    env->GetByteArrayRegion(message, 0, env->GetArrayLength(message), bytes); // Java checked the length
    uint8_t padded[kosc::MESSAGE_BYTES];
    std::memcpy(padded, bytes, sizeof padded);
    if (ko_soundcommu_encode(found->handle.get(), padded, sizeof padded, frame, kosc::FRAME_SAMPLES * sizeof *frame) !=
        0) {
        raise_failure(env, "The message cannot be encoded.");
        return false;
    }
    return true;
}

jshortArray encode(JNIEnv* env, jclass, jobject, jlong id, jbyteArray message)
{
    return guarded(env, [&]() -> jshortArray {
        std::vector<int16_t> frame(kosc::FRAME_SAMPLES);
        if (!encode_into(env, id, message, frame.data())) {
            return nullptr;
        }
        const auto samples = static_cast<jsize>(frame.size());
        const jshortArray result = env->NewShortArray(samples);
        if (result != nullptr) {
            env->SetShortArrayRegion(result, 0, samples, frame.data());
        }
        return result;
    });
}

// A direct buffer's samples from byte `offset` on; null, with an exception, at an odd address.
int16_t* samples_at(JNIEnv* env, jobject buffer, jint offset)
{
    auto* const address = static_cast<char*>(env->GetDirectBufferAddress(buffer));
    if (address == nullptr || reinterpret_cast<uintptr_t>(address + offset) % alignof(int16_t) != 0) {
        raise(env, ILLEGAL_ARGUMENT, "The buffer's position is not at an even address.");
        return nullptr;
    }
    return reinterpret_cast<int16_t*>(address + offset);
}

void encode_direct(JNIEnv* env, jclass, jobject, jlong id, jbyteArray message, jobject buffer, jint offset)
{
    int16_t* const frame = samples_at(env, buffer, offset);
    if (frame != nullptr) {
        guarded(env, [&] { return encode_into(env, id, message, frame); });
    }
}

jlong open_receiver(JNIEnv* env, jclass, jintArray first_subcarriers, jboolean second_look, jboolean recording,
                    jint combining, jboolean crowd)
{
    return guarded(env, [&] {
        std::vector<jint> bands(static_cast<size_t>(env->GetArrayLength(first_subcarriers)));
        env->GetIntArrayRegion(first_subcarriers, 0, static_cast<jsize>(bands.size()), bands.data());
        return receivers.add(std::make_shared<receiver>(kosc_jni::receiver_settings{{bands.begin(), bands.end()},
                                                                                    second_look != JNI_FALSE,
                                                                                    recording != JNI_FALSE,
                                                                                    static_cast<uint32_t>(combining),
                                                                                    crowd != JNI_FALSE}));
    });
}

// The messages of these channels, one record behind the other, as kosc.Message reads them; null for none. They are kept
// for the next call where this one fails.
jbyteArray hand_over(JNIEnv* env, bool well, receiver& from, jint first, jint channels)
{
    if (!well) {
        raise_failure(env, "The samples cannot be received.");
        return nullptr;
    }
    const std::vector<heard> messages = from.messages(first, channels);
    if (messages.empty()) {
        return nullptr;
    }
    const auto size = static_cast<jsize>(messages.size() * sizeof(heard));
    const jbyteArray bytes = env->NewByteArray(size);
    if (bytes != nullptr) {
        env->SetByteArrayRegion(bytes, 0, size, reinterpret_cast<const jbyte*>(messages.data()));
        from.forget(first, channels);
    }
    return bytes;
}

// Has `listen(receiver)` done with the channels locked.
template <typename Listen> jbyteArray listen(JNIEnv* env, jlong id, jint first, jint channels, Listen listen)
{
    return guarded(env, [&]() -> jbyteArray {
        const auto found = find(env, receivers, id, "The receiver is closed.");
        if (!found) {
            return nullptr;
        }
        const auto locks = found->lock(first, channels);
        return hand_over(env, listen(*found), *found, first, channels);
    });
}

// `copy(start, count, to)` fetches interleaved samples.
template <typename Copy> bool push_pieces(receiver& to, jint frames, jint first, jint channels, Copy copy)
{
    bool well = true;
    const jint step = PIECE / channels;
    for (jint done = 0; well && done < frames; done += step) {
        int16_t interleaved[PIECE];
        const jint count = std::min(step, frames - done);
        copy(done * channels, count * channels, interleaved);
        for (jint channel = 0; well && channel < channels; ++channel) {
            int16_t apart[PIECE];
            for (jint i = 0; i < count; ++i) {
                apart[i] = interleaved[i * channels + channel];
            }
            well = to.push(first + channel, apart, static_cast<uint32_t>(count));
        }
    }
    return well;
}

jbyteArray hear(JNIEnv* env, jclass, jobject, jlong id, jshortArray samples, jint frames, jint first, jint channels)
{
    return listen(env, id, first, channels, [&](receiver& to) {
        return push_pieces(to, frames, first, channels, [&](jint start, jint count, int16_t* piece) {
            env->GetShortArrayRegion(samples, start, count, piece);
        });
    });
}

jbyteArray hear_direct(JNIEnv* env, jclass, jobject, jlong id, jobject buffer, jint offset, jint frames, jint first,
                       jint channels)
{
    const int16_t* const samples = samples_at(env, buffer, offset);
    if (samples == nullptr) {
        return nullptr;
    }
    return listen(env, id, first, channels, [&](receiver& to) {
        return channels == 1 ? to.push(first, samples, static_cast<uint32_t>(frames))
                             : push_pieces(to, frames, first, channels, [&](jint start, jint count, int16_t* piece) {
                                   std::copy_n(samples + start, count, piece);
                               });
    });
}

jbyteArray finish(JNIEnv* env, jclass, jobject, jlong id)
{
    return listen(env, id, 0, kosc_jni::CHANNELS, [&](receiver& to) { return to.finish(); });
}

void close(JNIEnv*, jclass, jlong id)
{
    receivers.remove(id);
    senders.remove(id);
}

} // namespace

extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* vm, void*)
{
    // Every line in a buffer of its own, so that threads may log; only errors, which become exceptions.
    ko_soundcommu_register_log(keep_error);
    soundcomm_set_log_level(KOSC_LEVEL_ERROR);

    void* env = nullptr;
    if (vm->GetEnv(&env, JNI_VERSION_1_6) != JNI_OK) {
        return JNI_ERR;
    }
#define KOSC_NATIVE(name, signature, function)                                                                         \
    {                                                                                                                  \
        const_cast<char*>(name), const_cast<char*>(signature), reinterpret_cast<void*>(function)                       \
    }
    const JNINativeMethod methods[] = {
        KOSC_NATIVE("version", "()Ljava/lang/String;", version),
        KOSC_NATIVE("band", "(I)[Ljava/lang/Object;", get_band),
        KOSC_NATIVE("findBand", "(Ljava/lang/String;)[Ljava/lang/Object;", find_band),
        KOSC_NATIVE("defaultSubcarrier", "()I", default_subcarrier),
        KOSC_NATIVE("openModem", "(I)J", open_sender),
        KOSC_NATIVE("encode", "(Ljava/lang/Object;J[B)[S", encode),
        KOSC_NATIVE("encode", "(Ljava/lang/Object;J[BLjava/nio/ByteBuffer;I)V", encode_direct),
        KOSC_NATIVE("openReceiver", "([IZZIZ)J", open_receiver),
        KOSC_NATIVE("hear", "(Ljava/lang/Object;J[SIII)[B", hear),
        KOSC_NATIVE("hear", "(Ljava/lang/Object;JLjava/nio/ByteBuffer;IIII)[B", hear_direct),
        KOSC_NATIVE("finish", "(Ljava/lang/Object;J)[B", finish),
        KOSC_NATIVE("close", "(J)V", close),
    };
#undef KOSC_NATIVE
    auto* const java = static_cast<JNIEnv*>(env);
    const jclass native = java->FindClass("kosc/Native");
    const bool known =
        native != nullptr && java->RegisterNatives(native, methods, sizeof methods / sizeof *methods) == 0;
    return known ? JNI_VERSION_1_6 : JNI_ERR;
}
