# Compiles SOURCES, unpacks CHART_JAR beside the classes and packs both into OUTPUT. Entries are sorted and carry one fixed time,
# so that the same sources give the same jar. WORK is thrown away first: no class of a deleted source survives.
function(run)
    execute_process(COMMAND ${ARGN} WORKING_DIRECTORY ${WORK}/content COMMAND_ERROR_IS_FATAL ANY)
endfunction()

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK}/content)

file(ARCHIVE_EXTRACT INPUT ${CHART_JAR} DESTINATION ${WORK}/content)
file(REMOVE ${WORK}/content/META-INF/MANIFEST.MF)
configure_file(${CHART_LICENSE} ${WORK}/content/META-INF/LICENSE-jfreechart.txt COPYONLY)

# The warning about an old source level is what the level is for: every runtime is to load the classes.
file(GLOB_RECURSE sources ${SOURCES}/*.java)
run(${JAVAC} --release 8 -encoding UTF-8 -Xlint:all,-options -Werror -classpath ${CHART_JAR} -d ${WORK}/content ${sources})

file(GLOB_RECURSE entries LIST_DIRECTORIES false RELATIVE ${WORK}/content ${WORK}/content/*)
list(SORT entries)
list(JOIN entries "\"\n\"" lines)
file(WRITE ${WORK}/entries "\"${lines}\"\n")
run(${JAR} --create --file=${WORK}/ORVANEControl.jar --date=2026-01-01T00:00:00Z @${WORK}/entries)
file(RENAME ${WORK}/ORVANEControl.jar ${OUTPUT})
