! A host's form builder: reads the model descriptions through the companion
! routines (counted strings: the first character holds the length) and
! prints every model's name, parameter names and units, and state-variable
! names and units. Also probes what a careless host may pass: numbers out
! of range and a short buffer.
program metadata_host
  implicit none
  integer :: nMod, iMod, nParam, nVar, i
  character(len=256) :: buf, buf2
  character(len=4) :: short

  call GetModelCount(nMod)
  write(*,'(A,I0)') 'models ', nMod
  do iMod = 1, nMod
    call GetModelName(iMod, buf)
    write(*,'(A,I0,A,A)') 'model ', iMod, ' ', counted(buf)
    call GetParamCount(iMod, nParam)
    write(*,'(A,I0)') 'parameters ', nParam
    do i = 1, nParam
      call GetParamName(iMod, i, buf)
      call GetParamUnit(iMod, i, buf2)
      write(*,'(A,I0,A,A,A,A)') 'param ', i, ' ', counted(buf), ' ', counted(buf2)
    end do
    call GetStateVarCount(iMod, nVar)
    write(*,'(A,I0)') 'statevars ', nVar
    do i = 1, nVar
      call GetStateVarName(iMod, i, buf)
      call GetStateVarUnit(iMod, i, buf2)
      write(*,'(A,I0,A,A,A,A)') 'statevar ', i, ' ', counted(buf), ' ', counted(buf2)
    end do
  end do

  ! Out of range: zero counts and empty texts.
  do iMod = 0, nMod + 1, nMod + 1
    buf = 'x'
    call GetModelName(iMod, buf)
    call GetParamCount(iMod, nParam)
    call GetStateVarCount(iMod, nVar)
    write(*,'(A,I0,A,I0,A,I0,A,I0)') 'outside model ', iMod, ' namelen ', ichar(buf(1:1)), &
      ' parameters ', nParam, ' statevars ', nVar
  end do
  iMod = 1
  call GetParamCount(iMod, nParam)
  do i = 0, nParam + 1, nParam + 1
    buf = 'x'
    buf2 = 'x'
    call GetParamName(iMod, i, buf)
    call GetStateVarUnit(iMod, i, buf2)
    write(*,'(A,I0,A,I0,A,I0)') 'outside param ', i, ' namelen ', ichar(buf(1:1)), &
      ' unitlen ', ichar(buf2(1:1))
  end do

  ! A four-character buffer holds the length and three characters.
  short = '****'
  call GetModelName(iMod, short)
  write(*,'(A,I0,A,A)') 'short ', ichar(short(1:1)), ' ', short(2:4)


contains

  function counted(s) result(t)
    character(len=*), intent(in) :: s
    character(len=:), allocatable :: t
    t = s(2:1 + ichar(s(1:1)))
  end function counted

end program metadata_host
