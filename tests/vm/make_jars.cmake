# Makes whole.jar and, for some classes, a jar without that class: without-CLASS.jar. -DJAVAC -DJAR -DSOURCES -DWORK -DOUTPUT (folder).
include(${CMAKE_CURRENT_LIST_DIR}/../support/run.cmake)

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK}/classes)
file(GLOB_RECURSE sources ${SOURCES}/*.java)
run(${JAVAC} --release 8 -encoding UTF-8 -Xlint:all,-options -Werror -d ${WORK}/classes ${sources})
foreach(missing IN ITEMS none com/orvane/tech/client/qmrt/win/QMRTWinControl kestatest/Control
        com/velmora/tq/kesta/KESTAFrame com/velmora/tq/kesta/KESTAListener)
    get_filename_component(name ${missing} NAME)
    file(COPY ${WORK}/classes/ DESTINATION ${WORK}/${name})
    file(REMOVE ${WORK}/${name}/${missing}.class)
    run(${JAR} --create --file ${OUTPUT}/without-${name}.jar -C ${WORK}/${name} .)
endforeach()
file(RENAME ${OUTPUT}/without-none.jar ${OUTPUT}/whole.jar)
