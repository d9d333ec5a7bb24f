import kosc.Band
import kosc.Modem
import kosc.Receiver

/** Prints "0.000 s, high: hello from Kotlin". */
fun main() {
    val sound = Modem(Modem.Options().band("high")).use { it.encode("hello from Kotlin") } // a real host plays it
    val options = Receiver.Options().bands(Band.all()).listener {
        println("%.3f s, %s: %s".format(java.util.Locale.ROOT, it.time, it.band, it.text))
    }
    Receiver(options).use {
        it.push(sound, sound.size, 0) // as recorded
        it.finish()
    }
}
