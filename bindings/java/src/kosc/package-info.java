/**
 * Data over sound: messages of up to 28 bytes become a quarter of a second of sound between 18 and 21 kHz, or in another
 * band, and back. {@link kosc.Modem} makes sound, {@link kosc.Receiver} hears it. For the JVM and for Android.
 */
package kosc;
