// A stand-in for tests, not Android's: only what the helper and the example call.
package android.os;

public final class Bundle {}
