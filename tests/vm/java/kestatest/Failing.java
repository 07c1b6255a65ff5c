package kestatest;

/** Fails where the tests ask for it. */
public final class Failing {
    private Failing() {
    }

    public static void in(String place) {
        if (place.equals(System.getProperty("kestatest.failing"))) {
            throw new IllegalStateException(place + " fails as asked");
        }
    }
}
