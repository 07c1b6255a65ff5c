package kestatest;

/** Fails where a test wants it to. */
public final class Failing {
    private Failing() {
    }

    public static void in(String place) {
        if (place.equals(System.getProperty("kestatest.failing"))) {
            throw new IllegalStateException(place + " fails as asked");
        }
    }
}
