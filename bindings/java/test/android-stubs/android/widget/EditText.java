// A stand-in for tests, not Android's: only what the helper and the example call.
package android.widget;

public class EditText extends TextView {
    public EditText(android.content.Context context) {
        super(context);
    }
}
