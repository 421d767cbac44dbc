! The Kalvos evaluator for Fortran, over the C interface (capi/kalvos_c.h).
!
! A kalvos_evaluator holds one evaluator; create it with init and free it with destroy. Every
! call returns a status, KALVOS_OK (0) on success; after a failure, message() and method()
! give what the evaluator raised, until the next call. Texts are passed as they are: trim
! a fixed-length variable that holds blanks it should not pass.
module kalvos
    use, intrinsic :: iso_c_binding, only: c_ptr, c_null_ptr, c_associated, c_char, &
                                           c_null_char, c_double, c_int, c_size_t, c_f_pointer
    implicit none
    private

    integer, parameter, public :: KALVOS_OK = 0, KALVOS_FAILED = 1, &
                                  KALVOS_NULL_ARGUMENT = 2, KALVOS_NO_MEMORY = 3, &
                                  KALVOS_INTERNAL = 4

    type, public :: kalvos_evaluator
        type(c_ptr) :: ptr = c_null_ptr
    contains
        procedure :: init => evaluator_init
        procedure :: destroy => evaluator_destroy
        procedure :: reset => evaluator_reset
        procedure :: set_num => evaluator_set_num
        procedure :: set_str => evaluator_set_str
        procedure :: delete => evaluator_delete
        procedure :: get_num => evaluator_get_num
        procedure :: has => evaluator_has
        procedure :: compute => evaluator_compute
        procedure :: compute_bool => evaluator_compute_bool
        procedure :: compute_str => evaluator_compute_str
        procedure :: compile => evaluator_compile
        procedure :: compute_compiled => evaluator_compute_compiled
        procedure :: message => evaluator_message
        procedure :: method => evaluator_method
    end type kalvos_evaluator

    ! A compiled expression; free it with destroy.
    type, public :: kalvos_compiled
        type(c_ptr) :: ptr = c_null_ptr
    contains
        procedure :: destroy => compiled_destroy
    end type kalvos_compiled

    interface
        type(c_ptr) function c_create() bind(c, name="kalvos_create")
            import :: c_ptr
        end function
        subroutine c_destroy(k) bind(c, name="kalvos_destroy")
            import :: c_ptr
            type(c_ptr), value :: k
        end subroutine
        integer(c_int) function c_reset(k) bind(c, name="kalvos_reset")
            import :: c_ptr, c_int
            type(c_ptr), value :: k
        end function
        type(c_ptr) function c_message(k) bind(c, name="kalvos_message")
            import :: c_ptr
            type(c_ptr), value :: k
        end function
        type(c_ptr) function c_method(k) bind(c, name="kalvos_method")
            import :: c_ptr
            type(c_ptr), value :: k
        end function
        integer(c_int) function c_set_num(k, name, value) bind(c, name="kalvos_set_num")
            import :: c_ptr, c_int, c_char, c_double
            type(c_ptr), value :: k
            character(kind=c_char), intent(in) :: name(*)
            real(c_double), value :: value
        end function
        integer(c_int) function c_set_str_n(k, name, nlen, value, vlen) &
            bind(c, name="kalvos_set_str_n")
            import :: c_ptr, c_int, c_char, c_size_t
            type(c_ptr), value :: k
            character(kind=c_char), intent(in) :: name(*), value(*)
            integer(c_size_t), value :: nlen, vlen
        end function
        integer(c_int) function c_delete(k, name, existed) bind(c, name="kalvos_delete")
            import :: c_ptr, c_int, c_char
            type(c_ptr), value :: k
            character(kind=c_char), intent(in) :: name(*)
            integer(c_int), intent(out) :: existed
        end function
        integer(c_int) function c_get_num(k, name, value) bind(c, name="kalvos_get_num")
            import :: c_ptr, c_int, c_char, c_double
            type(c_ptr), value :: k
            character(kind=c_char), intent(in) :: name(*)
            real(c_double), intent(out) :: value
        end function
        integer(c_int) function c_has(k, name, exists) bind(c, name="kalvos_has")
            import :: c_ptr, c_int, c_char
            type(c_ptr), value :: k
            character(kind=c_char), intent(in) :: name(*)
            integer(c_int), intent(out) :: exists
        end function
        integer(c_int) function c_compute(k, expr, errortext, value) &
            bind(c, name="kalvos_compute")
            import :: c_ptr, c_int, c_char, c_double
            type(c_ptr), value :: k
            character(kind=c_char), intent(in) :: expr(*), errortext(*)
            real(c_double), intent(out) :: value
        end function
        integer(c_int) function c_compute_bool(k, expr, errortext, value) &
            bind(c, name="kalvos_compute_bool")
            import :: c_ptr, c_int, c_char
            type(c_ptr), value :: k
            character(kind=c_char), intent(in) :: expr(*), errortext(*)
            integer(c_int), intent(out) :: value
        end function
        integer(c_int) function c_compute_str_n(k, text, tlen, errortext, result, rlen) &
            bind(c, name="kalvos_compute_str_n")
            import :: c_ptr, c_int, c_char, c_size_t
            type(c_ptr), value :: k
            character(kind=c_char), intent(in) :: text(*), errortext(*)
            integer(c_size_t), value :: tlen
            type(c_ptr), intent(out) :: result
            integer(c_size_t), intent(out) :: rlen
        end function
        integer(c_int) function c_compile(k, expr, errortext, handle) &
            bind(c, name="kalvos_compile")
            import :: c_ptr, c_int, c_char
            type(c_ptr), value :: k
            character(kind=c_char), intent(in) :: expr(*), errortext(*)
            type(c_ptr), intent(out) :: handle
        end function
        integer(c_int) function c_compute_compiled(k, handle, value) &
            bind(c, name="kalvos_compute_compiled")
            import :: c_ptr, c_int, c_double
            type(c_ptr), value :: k, handle
            real(c_double), intent(out) :: value
        end function
        subroutine c_compiled_destroy(handle) bind(c, name="kalvos_compiled_destroy")
            import :: c_ptr
            type(c_ptr), value :: handle
        end subroutine
        integer(c_size_t) function c_strlen(text) bind(c, name="strlen")
            import :: c_ptr, c_size_t
            type(c_ptr), value :: text
        end function
    end interface

contains

    ! A Fortran text as a C one.
    pure function c_text(text) result(c)
        character(len=*), intent(in) :: text
        character(kind=c_char, len=len(text) + 1) :: c
        c = text//c_null_char
    end function

    ! The error text of a call: absent is "".
    pure function c_errortext(errortext) result(c)
        character(len=*), intent(in), optional :: errortext
        character(kind=c_char, len=:), allocatable :: c
        if (present(errortext)) then
            c = errortext//c_null_char
        else
            c = c_null_char
        end if
    end function

    ! A copy of `length` characters at a C pointer.
    function f_text(ptr, length) result(text)
        type(c_ptr), intent(in) :: ptr
        integer(c_size_t), intent(in) :: length
        character(len=:), allocatable :: text
        character(kind=c_char, len=length), pointer :: chars
        if (.not. c_associated(ptr) .or. length == 0) then
            text = ""
            return
        end if
        call c_f_pointer(ptr, chars)
        text = chars
    end function

    function evaluator_init(self) result(status)
        class(kalvos_evaluator), intent(inout) :: self
        integer :: status
        self%ptr = c_create()
        status = KALVOS_OK
        if (.not. c_associated(self%ptr)) status = KALVOS_NO_MEMORY
    end function

    subroutine evaluator_destroy(self)
        class(kalvos_evaluator), intent(inout) :: self
        call c_destroy(self%ptr)
        self%ptr = c_null_ptr
    end subroutine

    function evaluator_reset(self) result(status)
        class(kalvos_evaluator), intent(inout) :: self
        integer :: status
        status = c_reset(self%ptr)
    end function

    function evaluator_message(self) result(text)
        class(kalvos_evaluator), intent(in) :: self
        character(len=:), allocatable :: text
        type(c_ptr) :: ptr
        ptr = c_message(self%ptr)
        text = f_text(ptr, c_strlen(ptr))
    end function

    function evaluator_method(self) result(text)
        class(kalvos_evaluator), intent(in) :: self
        character(len=:), allocatable :: text
        type(c_ptr) :: ptr
        ptr = c_method(self%ptr)
        text = f_text(ptr, c_strlen(ptr))
    end function

    function evaluator_set_num(self, name, value) result(status)
        class(kalvos_evaluator), intent(inout) :: self
        character(len=*), intent(in) :: name
        real(c_double), intent(in) :: value
        integer :: status
        status = c_set_num(self%ptr, c_text(name), value)
    end function

    function evaluator_set_str(self, name, value) result(status)
        class(kalvos_evaluator), intent(inout) :: self
        character(len=*), intent(in) :: name, value
        integer :: status
        status = c_set_str_n(self%ptr, name, len(name, c_size_t), value, len(value, c_size_t))
    end function

    function evaluator_delete(self, name) result(status)
        class(kalvos_evaluator), intent(inout) :: self
        character(len=*), intent(in) :: name
        integer :: status
        integer(c_int) :: existed
        status = c_delete(self%ptr, c_text(name), existed)
    end function

    function evaluator_get_num(self, name, value) result(status)
        class(kalvos_evaluator), intent(inout) :: self
        character(len=*), intent(in) :: name
        real(c_double), intent(out) :: value
        integer :: status
        value = 0
        status = c_get_num(self%ptr, c_text(name), value)
    end function

    function evaluator_has(self, name) result(exists)
        class(kalvos_evaluator), intent(inout) :: self
        character(len=*), intent(in) :: name
        logical :: exists
        integer(c_int) :: flag
        flag = 0
        if (c_has(self%ptr, c_text(name), flag) /= KALVOS_OK) flag = 0
        exists = flag /= 0
    end function

    function evaluator_compute(self, expr, value, errortext) result(status)
        class(kalvos_evaluator), intent(inout) :: self
        character(len=*), intent(in) :: expr
        real(c_double), intent(out) :: value
        character(len=*), intent(in), optional :: errortext
        integer :: status
        value = 0
        status = c_compute(self%ptr, c_text(expr), c_errortext(errortext), value)
    end function

    function evaluator_compute_bool(self, expr, value, errortext) result(status)
        class(kalvos_evaluator), intent(inout) :: self
        character(len=*), intent(in) :: expr
        logical, intent(out) :: value
        character(len=*), intent(in), optional :: errortext
        integer :: status
        integer(c_int) :: flag
        flag = 0
        status = c_compute_bool(self%ptr, c_text(expr), c_errortext(errortext), flag)
        value = flag /= 0
    end function

    function evaluator_compute_str(self, text, result, errortext) result(status)
        class(kalvos_evaluator), intent(inout) :: self
        character(len=*), intent(in) :: text
        character(len=:), allocatable, intent(out) :: result
        character(len=*), intent(in), optional :: errortext
        integer :: status
        type(c_ptr) :: ptr
        integer(c_size_t) :: length
        ptr = c_null_ptr
        length = 0
        status = c_compute_str_n(self%ptr, text, len(text, c_size_t), c_errortext(errortext), &
                                 ptr, length)
        result = f_text(ptr, length)
    end function

    function evaluator_compile(self, expr, handle, errortext) result(status)
        class(kalvos_evaluator), intent(inout) :: self
        character(len=*), intent(in) :: expr
        type(kalvos_compiled), intent(inout) :: handle
        character(len=*), intent(in), optional :: errortext
        integer :: status
        status = c_compile(self%ptr, c_text(expr), c_errortext(errortext), handle%ptr)
    end function

    function evaluator_compute_compiled(self, handle, value) result(status)
        class(kalvos_evaluator), intent(inout) :: self
        type(kalvos_compiled), intent(in) :: handle
        real(c_double), intent(out) :: value
        integer :: status
        value = 0
        status = c_compute_compiled(self%ptr, handle%ptr, value)
    end function

    subroutine compiled_destroy(self)
        class(kalvos_compiled), intent(inout) :: self
        call c_compiled_destroy(self%ptr)
        self%ptr = c_null_ptr
    end subroutine

end module kalvos
