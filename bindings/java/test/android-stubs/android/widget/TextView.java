// A stand-in for tests, not Android's: only what the helper and the example call.
package android.widget;

public class TextView extends android.view.View {
    public TextView(android.content.Context context) {}

    public CharSequence getText() {
        return "";
    }

    public final void setText(CharSequence text) {}

    public final void setHint(CharSequence hint) {}

    public final void append(CharSequence text) {}
}
