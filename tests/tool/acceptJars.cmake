# Makes Stations.jar and TestControl.jar with faults, and Basis.jar with classes that take the place of the basis control's. -DJAVAC -DJAR -DSOURCES -DPRODUCT (folder of the jars) -DOUTPUT (folder).
include(${CMAKE_CURRENT_LIST_DIR}/../support/run.cmake)

file(REMOVE_RECURSE ${OUTPUT})
# The sample itself, which the faulty one passes its calls to.
file(ARCHIVE_EXTRACT INPUT ${PRODUCT}/Stations.jar DESTINATION ${OUTPUT}/sample)
run(${JAVAC} --release 8 -encoding UTF-8 -Xlint:all,-options -Werror -d ${OUTPUT}/classes
    -classpath ${PRODUCT}/ORVANEControl.jar:${OUTPUT}/sample ${SOURCES})
file(MAKE_DIRECTORY ${OUTPUT}/Basis)
file(RENAME ${OUTPUT}/classes/com ${OUTPUT}/Basis/com)
foreach(control Stations TestControl)
    file(COPY ${OUTPUT}/classes/ DESTINATION ${OUTPUT}/${control})
    file(WRITE ${OUTPUT}/${control}/META-INF/services/com.velmora.tq.kesta.control.Control "kestatest.Faulty${control}\n")
endforeach()
file(COPY ${OUTPUT}/sample/org DESTINATION ${OUTPUT}/Stations)
foreach(control Stations TestControl Basis)
    run(${JAR} --create --file ${OUTPUT}/${control}.jar -C ${OUTPUT}/${control} .)
endforeach()
