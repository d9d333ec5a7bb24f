/** What libkosc needs of Android's audio. No device was tried. */
package kosc.android;
