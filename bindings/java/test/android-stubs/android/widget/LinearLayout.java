// A stand-in for tests, not Android's: only what the helper and the example call.
package android.widget;

public class LinearLayout extends android.view.View {
    public static final int VERTICAL = 1;

    public LinearLayout(android.content.Context context) {}

    public void setOrientation(int orientation) {}

    public void addView(android.view.View child) {}
}
