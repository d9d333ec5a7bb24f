// No device was tried: this is compiled against stand-ins for Android's classes.
package kosc.example;

import android.Manifest;
import android.app.Activity;
import android.content.pm.PackageManager;
import android.os.Bundle;
import android.widget.Button;
import android.widget.EditText;
import android.widget.LinearLayout;
import android.widget.TextView;
import java.util.Locale;
import kosc.Message;
import kosc.Modem;
import kosc.Receiver;
import kosc.android.Loudspeaker;
import kosc.android.Microphone;

/** One screen: a message to send, a button that listens, and what was heard. Listens while it is seen. */
public final class MainActivity extends Activity {
    private final Modem modem = new Modem();
    private EditText text;
    private Button listen;
    private TextView heard;
    private Receiver receiver;
    private Microphone microphone;

    @Override
    protected void onCreate(Bundle state) {
        super.onCreate(state);
        text = new EditText(this);
        text.setHint("up to 28 bytes");
        Button send = new Button(this);
        send.setText("Send");
        send.setOnClickListener((view) -> send(text.getText().toString()));
        listen = new Button(this);
        listen.setText("Listen");
        listen.setOnClickListener((view) -> toggle());
        heard = new TextView(this);
        LinearLayout screen = new LinearLayout(this);
        screen.setOrientation(LinearLayout.VERTICAL);
        screen.setFitsSystemWindows(true);
        screen.addView(text);
        screen.addView(send);
        screen.addView(listen);
        screen.addView(heard);
        setContentView(screen);
    }

    private void send(String message) {
        new Thread(() -> {
            try {
                Loudspeaker.play(modem.encode(message));
                say("Sent: " + message);
            } catch (RuntimeException | InterruptedException failed) {
                say(failed.getMessage());
            }
        }).start();
    }

    private void toggle() {
        if (microphone != null) {
            stop();
        } else if (checkSelfPermission(Manifest.permission.RECORD_AUDIO) == PackageManager.PERMISSION_GRANTED) {
            start();
        } else {
            requestPermissions(new String[] {Manifest.permission.RECORD_AUDIO}, 0);
        }
    }

    @Override
    public void onRequestPermissionsResult(int request, String[] permissions, int[] results) {
        if (results.length > 0 && results[0] == PackageManager.PERMISSION_GRANTED) {
            start();
        } else {
            say("Without the microphone nothing is heard.");
        }
    }

    private void start() {
        receiver = new Receiver(new Receiver.Options().listener(this::show));
        try {
            microphone = new Microphone(this, receiver, (reason) -> runOnUiThread(() -> {
                say(reason);
                stop();
            }));
            listen.setText("Stop listening");
        } catch (IllegalStateException failed) {
            say(failed.getMessage());
            receiver.close();
        }
    }

    private void stop() {
        if (microphone != null) {
            microphone.close();
            receiver.close();
            microphone = null;
            listen.setText("Listen");
        }
    }

    private void show(Message message) {
        String words = message.getText() != null ? message.getText() : "(bytes)";
        say(String.format(Locale.ROOT, "%.1f s: %s (%.0f dB)", message.getTime(), words, message.getSnrDb()));
    }

    private void say(String line) {
        runOnUiThread(() -> heard.append(line + "\n"));
    }

    @Override
    protected void onStop() {
        super.onStop();
        stop();
    }

    @Override
    protected void onDestroy() {
        super.onDestroy();
        modem.close();
    }
}
