package com.velmora.tq.kesta.runner;

import java.lang.annotation.ElementType;
import java.lang.annotation.Retention;
import java.lang.annotation.RetentionPolicy;
import java.lang.annotation.Target;
import org.junit.jupiter.api.extension.ExtendWith;

/**
 * On a JUnit 5 test class: test methods may take a Runner, which starts the named control for the test and closes it behind it,
 * so that whatever went wrong on any thread fails the test.
 */
@Target(ElementType.TYPE)
@Retention(RetentionPolicy.RUNTIME)
@ExtendWith(RunnerExtension.class)
public @interface RunControl {
    /** The control's name; not needed where the class path has only one. */
    String value() default "";
}
