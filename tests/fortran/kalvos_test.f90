! The Fortran module: values, variables, a failure's message and method, and a handle.
program kalvos_test
    use kalvos
    use, intrinsic :: iso_c_binding, only: c_double
    implicit none
    type(kalvos_evaluator) :: k
    type(kalvos_compiled) :: h
    real(c_double) :: x
    logical :: b, found, missing
    character(len=:), allocatable :: s
    integer :: failures, st

    ! A call's outputs are compared after the call: Fortran fixes no order within an expression,
    ! and may leave out a call whose value an .and. does not need.
    failures = 0
    call check(k%init() == KALVOS_OK, "init")
    call check(k%set_num("a", 5.0_c_double) == KALVOS_OK, "set_num")
    call check(k%set_str("case", "run") == KALVOS_OK, "set_str")
    st = k%compute("2 * max(a, 3) + 1", x)
    call check(st == KALVOS_OK .and. x == 11, "compute")
    st = k%compute_bool("a >= 5 @@ !0", b)
    call check(st == KALVOS_OK .and. b, "compute_bool")
    st = k%compute_str("$[case]_[a].dat", s)
    call check(st == KALVOS_OK .and. s == "run_5.dat", "compute_str")
    st = k%get_num("a", x)
    call check(st == KALVOS_OK .and. x == 5, "get_num")
    found = k%has("case")
    missing = .not. k%has("nope")
    call check(found .and. missing, "has")

    call check(k%compute("1 / (a - 5)", x, " in line 4") == KALVOS_FAILED, "failure status")
    call check(k%message() == "Evaluating [1/(a-5)]: Division by zero. in line 4", "message")
    call check(k%method() == "ComputExpr", "method")
    call check(k%get_num("case", x) == KALVOS_FAILED, "text variable")
    call check(k%message() == "The variable 'case' is not a numeric variable.", "store message")

    call check(k%compile("a * a", h) == KALVOS_OK, "compile")
    call check(k%set_num("a", 3.0_c_double) == KALVOS_OK, "set again")
    st = k%compute_compiled(h, x)
    call check(st == KALVOS_OK .and. x == 9, "compute_compiled")
    st = k%delete("a")
    missing = .not. k%has("a")
    call check(st == KALVOS_OK .and. missing, "delete")
    call check(k%reset() == KALVOS_OK, "reset")
    st = k%compute_compiled(h, x)
    call check(st == KALVOS_FAILED, "handle after reset")
    call check(k%method() == "ComputeCompiled", "method after reset")
    call h%destroy()
    call k%destroy()
    ! The main program's variables live to the end; freeing them keeps the leak check quiet.
    deallocate (s)
    if (failures /= 0) error stop 1

contains

    subroutine check(ok, what)
        logical, intent(in) :: ok
        character(len=*), intent(in) :: what
        if (.not. ok) then
            print '(a,a,a,a)', "failed: ", what, " / ", k%message()
            failures = failures + 1
        end if
    end subroutine

end program kalvos_test
