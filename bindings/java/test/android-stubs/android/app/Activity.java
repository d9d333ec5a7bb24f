// A stand-in for tests, not Android's: only what the helper and the example call.
package android.app;

import android.os.Bundle;
import android.view.View;

public class Activity extends android.content.Context {
    protected void onCreate(Bundle state) {}

    protected void onStop() {}

    protected void onDestroy() {}

    public void setContentView(View view) {}

    public final void runOnUiThread(Runnable action) {}

    public final void requestPermissions(String[] permissions, int request) {}

    public void onRequestPermissionsResult(int request, String[] permissions, int[] results) {}
}
