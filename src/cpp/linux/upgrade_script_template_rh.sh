while ps -p ${pid_wait_for} >/dev/null; do sleep 1; done;

if [ x$XTRM == x ]; then XTRM=`which konsole`; XOPT=-e; KONSOLE=1; fi;
if [ x$XTRM == x ]; then XTRM=`which xterm`; XOPT=-e\ /bin/bash\ -l\ -c; KONSOLE=0; fi;
if [ x$XTRM == x ]; then XTRM=`which gnome-terminal`; XOPT=-x\ /bin/bash\ -c; KONSOLE=0; fi;

PKEXEC=Y;
if [ x$SU == x ]; then SU=`which pkexec`; fi;
if [ x$SU == x ]; then SU=`which beesu`; PKEXEC=N; fi;
if [ x$SU == x ]; then SU=`which kdesu`; fi;

FLAG_FILE=/tmp/brenik-`date +%s`;
if [ x$SU == x ]; then >${FLAG_FILE}; fi;

PM=`which zypper`;
if [ x$PM == x ]; then
  PM=`which dnf`;
  if [ x$PM == x ]; then PM=`which yum`; fi;
  if [ x$PM == x ]; then notify-send ${kBinaryAppName}-updater:\ no\ package\ manager\ found; exit 1; fi;
  IN_CMD=set\ -o\ pipefail\;set\ -x\;sudo\ $PM\ -y\ remove\ ${kBinaryAppName}\ 2\>\&1\|tee\ ${debug_output_reroute}\;;
  IN_CMD=${IN_CMD}sudo\ $PM\ -y\ install\ ${upgradePath}\ 2\>\&1\|tee\ -a\ ${debug_output_reroute};
else
  IN_CMD=set\ -o\ pipefail\;set\ -x\;sudo\ $PM\ remove\ -y\ ${kBinaryAppName}\ 2\>\&1\|tee\ ${debug_output_reroute}\;;
  IN_CMD=${IN_CMD}sudo\ $PM\ clean\ --all\ 2\>\&1\|tee\ -a\ ${debug_output_reroute}\;;
  IN_CMD=${IN_CMD}sudo\ $PM\ install\ -y\ -f\ ${upgradePath}\ 2\>\&1\|tee\ -a\ ${debug_output_reroute};
fi;
if [ x$SU == x ]; then
  if [ x$XTRM == x ]; then notify-send ${kBinaryAppName}-updater:\ no\ terminal\ emulator\ found; exit 1; fi;
  if [ $KONSOLE == "1" ]; then
    IN_CMD2="${IN_CMD};read -n 1 -p Press\ any\ key\ to\ close...\ ; echo OK >${FLAG_FILE}";
    $XTRM ${XOPT} /bin/bash -c "${IN_CMD2}";
  else
    $XTRM ${XOPT} "${IN_CMD};read -n 1 -p Press\ any\ key\ to\ close...\ ; echo OK >${FLAG_FILE}";
  fi;
else
  if [ x$PKEXEC == xN ]; then
    $SU -c "/bin/bash -c \"$IN_CMD\"";
  else
    $SU /bin/bash -c "${IN_CMD}";
  fi;
fi;

if [ $? -ne 0 ]; then
  notify-send ${kBinaryAppName}-updater:\ There\ was\ an\ error\. For\ more\ information\ look\ at:\"${debug_output_reroute}\";
fi;

STARTED_AT=`date +%s`;
FINISH_AT=$((STARTED_AT+120));
until [ `date +%s` -gt $FINISH_AT ]; do
  if [ ! -f $FLAG_FILE ]; then break; fi;
  if grep -q OK $FLAG_FILE; then break; fi;
  sleep 2;
done;
if [ -f $FLAG_FILE ]; then rm $FLAG_FILE; fi
