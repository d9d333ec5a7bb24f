package kosc;

import java.nio.ByteBuffer;
import java.nio.ByteOrder;

/** What is refused before the library is asked. */
final class Check {
    private Check() {}

    static <T> T given(T value, String name) {
        if (value == null) {
            throw new NullPointerException("There is nothing where " + name + " should be.");
        }
        return value;
    }

    static void that(boolean right, String sentence) {
        if (!right) {
            throw new IllegalArgumentException(sentence);
        }
    }

    /** The library reads the buffer's own memory, as it is. */
    static void direct(ByteBuffer buffer) {
        given(buffer, "the buffer");
        that(buffer.isDirect(), "The buffer is not direct; make it by ByteBuffer.allocateDirect().");
        that(buffer.order() == ByteOrder.nativeOrder(),
            "The buffer's byte order is not the machine's; set it by order(ByteOrder.nativeOrder()).");
    }
}
