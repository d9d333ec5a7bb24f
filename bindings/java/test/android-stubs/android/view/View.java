// A stand-in for tests, not Android's: only what the helper and the example call.
package android.view;

public class View {
    public interface OnClickListener {
        void onClick(View view);
    }

    public void setOnClickListener(OnClickListener listener) {}

    public void setFitsSystemWindows(boolean fits) {}
}
