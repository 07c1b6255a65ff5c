package com.velmora.tq.kesta.runner;

import org.junit.jupiter.api.extension.AfterEachCallback;
import org.junit.jupiter.api.extension.ExtensionContext;
import org.junit.jupiter.api.extension.ParameterContext;
import org.junit.jupiter.api.extension.ParameterResolver;

/** What RunControl asks for. One runner a test. */
final class RunnerExtension implements ParameterResolver, AfterEachCallback {
    private static final ExtensionContext.Namespace PLACE = ExtensionContext.Namespace.create(RunnerExtension.class);

    RunnerExtension() {
    }

    @Override
    public boolean supportsParameter(ParameterContext parameter, ExtensionContext test) {
        return parameter.getParameter().getType() == Runner.class;
    }

    @Override
    public Object resolveParameter(ParameterContext parameter, ExtensionContext test) {
        String name = test.getRequiredTestClass().getAnnotation(RunControl.class).value();
        return test.getStore(PLACE).getOrComputeIfAbsent(Runner.class, key -> Runner.start(name));
    }

    @Override
    public void afterEach(ExtensionContext test) {
        Runner runner = test.getStore(PLACE).remove(Runner.class, Runner.class);
        if (runner != null) {
            runner.close();
        }
    }
}
