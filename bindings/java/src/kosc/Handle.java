package kosc;

import java.lang.ref.PhantomReference;
import java.lang.ref.Reference;
import java.lang.ref.ReferenceQueue;
import java.util.Collections;
import java.util.Set;
import java.util.concurrent.ConcurrentHashMap;

/** The number of an object of the library, closed with its owner or, where that is forgotten, after it was collected. */
final class Handle extends PhantomReference<Object> {
    private static final ReferenceQueue<Object> COLLECTED = new ReferenceQueue<>();
    private static final Set<Handle> OPEN = Collections.newSetFromMap(new ConcurrentHashMap<Handle, Boolean>());

    final long number;

    Handle(Object owner, long number) {
        super(owner, COLLECTED);
        this.number = number;
        OPEN.add(this);
        for (Reference<?> forgotten = COLLECTED.poll(); forgotten != null; forgotten = COLLECTED.poll()) {
            ((Handle) forgotten).close();
        }
    }

    void close() {
        OPEN.remove(this);
        Native.close(number);
    }
}
